# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers

# Qt's headers, most of what the daemon takes to compile, read once. Only for this build: the one that ships shows that
# each file includes what it uses. Not with a compiler cache, which cannot tell by such a header that it knows the rest.
function(corvi_precompile)
    file(CONFIGURE OUTPUT precompiled.cpp CONTENT "")
    add_library(precompiled OBJECT ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp)
    target_link_libraries(precompiled PRIVATE product_options Qt::Core)
    target_precompile_headers(precompiled PRIVATE <QtCore>)
    foreach(target files rules support config devices supplicant core)
        target_precompile_headers(${target} REUSE_FROM precompiled)
    endforeach()
endfunction()
if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
    cmake_language(DEFER CALL corvi_precompile)
endif()
