# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

find_package(Threads REQUIRED)
add_library(fakesupplicant STATIC ../support/fakesupplicant.cpp ../support/fakesupplicant.h)
target_include_directories(fakesupplicant PUBLIC ../support)
target_link_libraries(fakesupplicant PUBLIC Qt5::Core Threads::Threads)

corvi_add_unit_test(tst_wpactrl TIMEOUT 240 LIBS supplicant fakesupplicant)
corvi_add_unit_test(tst_wpasupplicantcontrol LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_events LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_restart TIMEOUT 240 LIBS supplicant support fakesupplicant)
corvi_add_unit_test(tst_wpasuppthread_worker TIMEOUT 240 LIBS supplicant support fakesupplicant)
