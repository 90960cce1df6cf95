# What every target of the project is compiled and linked with: link kub_settings PRIVATE.
# Warnings are errors where CMAKE_COMPILE_WARNING_AS_ERROR says so: in the presets of developers. A
# compiler that knows more of them does not stop anybody else.
add_library(kub_settings INTERFACE)
target_compile_options(kub_settings INTERFACE
    -Wall -Wextra -Wconversion -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wsuggest-override>
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wsuggest-override>)
if(CMAKE_COMPILE_WARNING_AS_ERROR)
    target_link_options(kub_settings INTERFACE -Wl,--fatal-warnings)
endif()
if(NOT KUB_SANITIZE)
    # Sanitized libraries take the sanitizer's symbols from the program.
    target_link_options(kub_settings INTERFACE -Wl,--no-undefined)
endif()
target_compile_definitions(kub_settings INTERFACE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII
                                                  QT_NO_KEYWORDS)

# Sanitizers and coverage go onto every object, so that libraries and programs agree.
if(KUB_SANITIZE)
    add_compile_options(-fsanitize=${KUB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KUB_SANITIZE})
    target_compile_definitions(kub_settings INTERFACE KUB_SANITIZED)
endif()
if(KUB_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
if(KUB_FUZZ)
    # The code under test tells the fuzzer where an input led; only a target has the fuzzer's main.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Where several files are compiled as one, reading GCC's precompiled headers takes longer than what
# they stand for; clang maps its own into memory.
if(NOT CMAKE_UNITY_BUILD OR CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(KUB_PRECOMPILE ON)
endif()

# What most files of the host programs include, read once for each target. Only in debug builds: an
# optimised one shows that each file includes what it uses.
function(kub_precompile_headers target)
    if(CMAKE_BUILD_TYPE STREQUAL "Debug" AND KUB_PRECOMPILE)
        target_precompile_headers(${target} PRIVATE
            <QByteArray> <QHash> <QMap> <QString> <QStringList> <algorithm> <functional> <map>
            <memory> <optional> <string> <vector>)
    endif()
endfunction()
