# Shared build rules: warnings, sanitizers, and the two helpers every folder uses.

set(OMBRY_WARNINGS -Wall -Wextra -Wpedantic)
if(OMBRY_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

# ombry_library(NAME SOURCES a.cpp b.cpp DEPS other_lib Qt6::Core)
# One static library per subsystem folder; its folder's parent (src/) is the include root,
# so code includes "data/Store.h", "platform/Clock.h" and so on.
function(ombry_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_compile_options(${name} PRIVATE ${OMBRY_WARNINGS})
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# ombry_test(NAME SOURCES t.cpp DEPS lib [LABELS unit|service|desktop])
# A Qt Test executable registered with CTest. Tests never touch the user's real files:
# each runs with its own HOME and XDG folders under the build tree.
function(ombry_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_compile_options(${name} PRIVATE ${OMBRY_WARNINGS})
    target_link_libraries(${name} PRIVATE ${ARG_DEPS} ombry_test_support Qt6::Test)
    ombry_add_test(${name} ${name} "" "${ARG_LABELS}")
endfunction()

# ombry_add_test(TEST EXECUTABLE ENVIRONMENT LABELS [ARGS...]): a run of a test executable,
# with a home of its own and the environment added to the one every test has.
function(ombry_add_test test executable environment labels)
    add_test(NAME ${test} COMMAND ${executable} ${ARGN})
    set(home ${CMAKE_BINARY_DIR}/testhome/${test})
    set(env "HOME=${home};XDG_CONFIG_HOME=${home}/config;XDG_DATA_HOME=${home}/data;XDG_CACHE_HOME=${home}/cache;QT_QPA_PLATFORM=offscreen;OMBRY_SITE_URL=;OPENROUTER_API_KEY=;DEEPGRAM_API_KEY=;OMBRY_BINARY=$<TARGET_FILE:ombry-voice>")
    set_tests_properties(${test} PROPERTIES
        ENVIRONMENT "${env};${environment}"
        LABELS "${labels}"
        TIMEOUT 300)
endfunction()

# ombry_pipewire_test(NAME [FUNCTIONS...]): the test NAME (made by ombry_test), or only those
# of its functions, run again as NAME_pipewire, its sound server (tests/support/SoundServer)
# PipeWire instead of PulseAudio.
function(ombry_pipewire_test name)
    ombry_add_test(${name}_pipewire ${name} "OMBRY_TEST_SOUND_SERVER=pipewire" desktop ${ARGN})
endfunction()

# ombry_folder_library(NAME DEPS ...): the library of a subsystem folder, made of every .cpp
# in it (not in subfolders), so adding a file needs no edit of the CMakeLists.
function(ombry_folder_library name)
    cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    if(sources)
        ombry_library(${name} SOURCES ${sources} DEPS ${ARG_DEPS})
    else()
        # A folder whose code has not been written yet still offers its target.
        add_library(${name} INTERFACE)
        target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
        target_link_libraries(${name} INTERFACE ${ARG_DEPS})
    endif()
endfunction()

# ombry_folder_tests(DEPS ...): one test executable for each tst_*.cpp of the folder.
# Extra .cpp files in the folder that are not tests are compiled into each of them.
function(ombry_folder_tests)
    cmake_parse_arguments(ARG "" "" "DEPS;LABELS" ${ARGN})
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tst_*.cpp)
    foreach(t IN LISTS tests)
        get_filename_component(name ${t} NAME_WE)
        ombry_test(${name} SOURCES ${t} DEPS ${ARG_DEPS} LABELS ${ARG_LABELS})
    endforeach()
endfunction()
