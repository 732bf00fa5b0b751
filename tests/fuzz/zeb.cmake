# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

if(NOT CORVI_DEVICE_ZEB)
    corvi_add_fuzz_target(fuzz_zebdocument LIBS zebdocument SEEDS ${PROJECT_SOURCE_DIR}/docs/samples)
    corvi_add_fuzz_target(fuzz_zebnetstatus LIBS zeb RUNS 200000)
endif()
