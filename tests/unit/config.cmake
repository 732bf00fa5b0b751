# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

corvi_add_unit_test(tst_securitymodes LIBS rules PLAIN)
corvi_add_unit_test(tst_supplicantline LIBS config)
corvi_add_unit_test(tst_wpasupplicantcfg LIBS config)
corvi_add_unit_test(tst_wpasupplicantcfg_file LIBS config)
corvi_add_unit_test(tst_wpasupplicantcfg_modes LIBS config)
corvi_add_unit_test(tst_hostilevalues LIBS config support zeb)
corvi_add_unit_test(tst_namednetwork LIBS config support)
corvi_add_unit_test(tst_namednetwork_block LIBS config support)
corvi_add_unit_test(tst_namednetwork_hostile LIBS config support)
corvi_add_unit_test(tst_namednetwork_scep LIBS config support)

# What a real supplicant says of the files that the tests above compare with.
corvi_add_sandboxed_test(golden_files LABEL unit MODE platform
    COMMAND python3 ${CMAKE_CURRENT_SOURCE_DIR}/../golden/check.py)
