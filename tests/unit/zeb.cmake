# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

# The insides of the bundled library; the device's own has none of them.
if(NOT CORVI_DEVICE_ZEB)
    corvi_add_unit_test(tst_zebcert LIBS zeb)
    corvi_add_unit_test(tst_zebcheck LIBS zebdocument)
    corvi_add_unit_test(tst_zebdocument LIBS zebdocument PLAIN)
    corvi_add_unit_test(tst_zeblastgood LIBS zeb)
    add_executable(readstore readstore.cpp)
    target_link_libraries(readstore PRIVATE zeb build_options)
    add_dependencies(tst_zeblastgood readstore)
    target_compile_definitions(tst_zeblastgood PRIVATE READSTORE="$<TARGET_FILE:readstore>")
    corvi_add_unit_test(tst_zebnetconfig LIBS zeb zebdocument)
    add_dependencies(tst_zebnetconfig readstore)
    target_compile_definitions(tst_zebnetconfig PRIVATE READSTORE="$<TARGET_FILE:readstore>")
    corvi_add_unit_test(tst_zebnetstatus LIBS zeb PLAIN)
    corvi_add_unit_test(tst_zebsamples LIBS zeb)
    target_compile_definitions(tst_zebsamples PRIVATE SAMPLES_FOLDER="${PROJECT_SOURCE_DIR}/docs/samples/")
    corvi_add_unit_test(tst_zebstore LIBS zeb)
    corvi_add_unit_test(tst_zebsystem LIBS zeb)
    corvi_add_unit_test(tst_zebxmlconfig LIBS zeb)
endif()
