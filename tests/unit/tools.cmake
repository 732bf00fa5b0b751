# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

if(TARGET corvi-status)
    corvi_add_unit_test(tst_corvi_status LIBS zeb Qt5::Network)
    add_dependencies(tst_corvi_status corvi-status)
    target_compile_definitions(tst_corvi_status PRIVATE CORVI_STATUS="$<TARGET_FILE:corvi-status>")
endif()
