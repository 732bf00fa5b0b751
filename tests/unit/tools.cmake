# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

if(TARGET corvi-check)
    corvi_add_unit_test(tst_checktool)
    add_dependencies(tst_checktool corvi-check)
    target_compile_definitions(tst_checktool PRIVATE CORVI_CHECK="$<TARGET_FILE:corvi-check>"
        SAMPLES_FOLDER="${PROJECT_SOURCE_DIR}/docs/samples/" README="${PROJECT_SOURCE_DIR}/README.md")
    corvi_add_unit_test(tst_machinecheck LIBS storecheck)
    corvi_add_unit_test(tst_spelling LIBS storecheck rules PLAIN)
    corvi_add_unit_test(tst_storeadvice LIBS storecheck PLAIN)
    corvi_add_unit_test(tst_storeagreement LIBS storecheck zeb TIMEOUT 600)
    corvi_add_unit_test(tst_storecheck LIBS storecheck PLAIN)
    corvi_add_unit_test(tst_storeplan LIBS storecheck config)
    target_compile_definitions(tst_storeplan PRIVATE SAMPLES_FOLDER="${PROJECT_SOURCE_DIR}/docs/samples/")
    corvi_add_unit_test(tst_storeschema LIBS storecheck rules TIMEOUT 300)
    target_compile_definitions(tst_storeschema PRIVATE STORE_SCHEMA="${PROJECT_SOURCE_DIR}/docs/store.rng"
        SAMPLES_FOLDER="${PROJECT_SOURCE_DIR}/docs/samples/")
endif()

if(TARGET corvi-status)
    corvi_add_unit_test(tst_addresswait LIBS statusreport PLAIN)
    corvi_add_unit_test(tst_masking LIBS statusreport PLAIN)
    corvi_add_unit_test(tst_reporttext LIBS statusreport PLAIN)
    corvi_add_unit_test(tst_supplicantfacts LIBS statusreport PLAIN)
    corvi_add_unit_test(tst_supportreport LIBS statusreport)
    corvi_add_unit_test(tst_systemfacts LIBS statusreport PLAIN)
    corvi_add_unit_test(tst_systemfacts_read LIBS statusreport fakesupplicant)
    corvi_add_unit_test(tst_verdict LIBS statusreport PLAIN)
    corvi_add_unit_test(tst_statustool LIBS zeb Qt::Network)
    add_dependencies(tst_statustool corvi-status)
    target_compile_definitions(tst_statustool PRIVATE CORVI_STATUS="$<TARGET_FILE:corvi-status>"
        STATUS_DOCUMENT="${PROJECT_SOURCE_DIR}/docs/status-interface.md")
    corvi_add_unit_test(tst_statustool_faults LIBS support zeb Qt::Network)
    add_dependencies(tst_statustool_faults corvi-status failingcalls)
    target_compile_definitions(tst_statustool_faults PRIVATE CORVI_STATUS="$<TARGET_FILE:corvi-status>"
        FAILING_CALLS="$<TARGET_FILE:failingcalls>")
endif()
