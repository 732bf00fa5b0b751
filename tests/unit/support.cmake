# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

corvi_add_unit_test(tst_instancelock LIBS support)
corvi_add_unit_test(tst_interfacekind LIBS support)
corvi_add_unit_test(tst_journal LIBS support)
corvi_add_unit_test(tst_linkevents LIBS support)
corvi_add_unit_test(tst_logging LIBS support)
corvi_add_unit_test(tst_platformfile LIBS support)
corvi_add_unit_test(tst_processsetting LIBS support PLAIN)
corvi_add_unit_test(tst_processsignals LIBS support PLAIN)
corvi_add_unit_test(tst_processstat LIBS support)
# Of Qt 5 only: with Qt 6 the kernel watches the child, which waits for nothing.
if(CORVI_QT EQUAL 5)
    corvi_add_unit_test(tst_program LIBS support fastclock)
endif()
corvi_add_unit_test(tst_reportonce LIBS support)
corvi_add_unit_test(tst_segmentid LIBS support)
corvi_add_unit_test(tst_servicemanager LIBS support PLAIN)
corvi_add_unit_test(tst_servicestate LIBS support)
corvi_add_unit_test(tst_shellline LIBS support)
corvi_add_unit_test(tst_sleeptime LIBS support fastclock)
corvi_add_unit_test(tst_utils LIBS support)
corvi_add_unit_test(tst_utils_piped LIBS support)
