# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

corvi_add_unit_test(tst_supplicantprocess LIBS supplicant fakesupplicant)
corvi_add_unit_test(tst_wpactrl TIMEOUT 240 LIBS supplicant fakesupplicant)
corvi_add_unit_test(tst_wpactrl_open LIBS supplicant fakesupplicant)
corvi_add_unit_test(tst_wpasupplicantcontrol LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_events LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_faults LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_process TIMEOUT 240 LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_restart TIMEOUT 240 LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_start LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_supervision LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_worker TIMEOUT 240 LIBS supplicant support fakesupplicant)

foreach(test tst_supplicantprocess tst_wpactrl tst_wpasuppthread_faults tst_wpasuppthread_process)
    add_dependencies(${test} fakesupplicantprogram)
endforeach()
