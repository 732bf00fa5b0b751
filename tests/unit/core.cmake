# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

corvi_add_unit_test(tst_corvi_discovery LIBS corviworld)
corvi_add_unit_test(tst_corvi_life LIBS corviworld fakesupplicant)
corvi_add_unit_test(tst_corvi_modem LIBS corviworld)
corvi_add_unit_test(tst_corvi_process LIBS corviworld)
corvi_add_unit_test(tst_corvi_quiet LIBS corviworld)
corvi_add_unit_test(tst_corvi_restart LIBS corviworld)
corvi_add_unit_test(tst_corvi_status LIBS corviworld)
corvi_add_unit_test(tst_corvi_wired LIBS corviworld)
corvi_add_unit_test(tst_corvi_wireless LIBS corviworld)
corvi_add_unit_test(tst_retrypause LIBS core)
corvi_add_unit_test(tst_supplicantdecisions LIBS core)
corvi_add_unit_test(tst_terminationsignals LIBS core support)
add_dependencies(tst_corvi_process corvi)
