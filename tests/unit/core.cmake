# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

set(CORE_TEST_LIBS core devices config supplicant support zeb Qt5::Network)
corvi_add_unit_test(tst_corvi_discovery LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_life LIBS ${CORE_TEST_LIBS} fakesupplicant)
corvi_add_unit_test(tst_corvi_modem LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_process LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_quiet LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_restart LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_status LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_wired LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_corvi_wireless LIBS ${CORE_TEST_LIBS})
corvi_add_unit_test(tst_retrypause LIBS core)
corvi_add_unit_test(tst_terminationsignals LIBS core support)
add_dependencies(tst_corvi_process corvi)
