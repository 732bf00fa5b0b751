# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

corvi_add_unit_test(tst_bondeddevice LIBS devices support)
corvi_add_unit_test(tst_defaultroute LIBS devices support)
corvi_add_unit_test(tst_dhcpclients LIBS devices support)
corvi_add_unit_test(tst_modem LIBS devices support)
corvi_add_unit_test(tst_modinfo LIBS devices support)
corvi_add_unit_test(tst_networkdevice LIBS deviceworld)
corvi_add_unit_test(tst_networkdevice_config LIBS deviceworld)
corvi_add_unit_test(tst_networkdevice_definitions LIBS deviceworld)
corvi_add_unit_test(tst_networkdevice_dhcp LIBS devices support)
corvi_add_unit_test(tst_networkdevice_link LIBS devices support)
corvi_add_unit_test(tst_networkdevice_linksettings LIBS deviceworld)
corvi_add_unit_test(tst_networkdevice_refresh LIBS deviceworld)
corvi_add_unit_test(tst_networkdevice_resolver LIBS devices support)
corvi_add_unit_test(tst_wireddevice LIBS devices support config zeb)
corvi_add_unit_test(tst_wirelessdevice LIBS devices support config zeb)
