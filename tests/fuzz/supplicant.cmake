# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

find_package(Threads REQUIRED)
corvi_add_fuzz_target(fuzz_control LIBS supplicant support Threads::Threads)
target_include_directories(fuzz_control PRIVATE ../support)
