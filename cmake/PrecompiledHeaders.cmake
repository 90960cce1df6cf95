# What most files include, read once. Only in debug builds: an optimised one shows that each file
# includes what it uses.

# Where several files are compiled as one, reading GCC's precompiled headers takes longer than what
# they stand for. Clang maps its own into memory: there one set does for all targets.
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    if(NOT CMAKE_UNITY_BUILD)
        set(KUB_PRECOMPILE ON)
    elseif(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        set(KUB_PRECOMPILE_ONCE ON)
    endif()
endif()

set(KUB_PRECOMPILED_HEADERS
    <QByteArray> <QHash> <QMap> <QString> <QStringList> <algorithm> <functional> <map> <memory>
    <optional> <string> <vector>)

# kub_precompile_once(NAME LIBRARIES HEADER...): a target that only has headers of those libraries read.
function(kub_precompile_once name libraries)
    if(KUB_PRECOMPILE_ONCE)
        set(source ${CMAKE_BINARY_DIR}/${name}.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "// Compiled for its headers.\n")
        add_library(${name} OBJECT ${source})
        target_link_libraries(${name} PRIVATE kub_settings ${libraries})
        target_precompile_headers(${name} PRIVATE ${ARGN})
    endif()
endfunction()

# For a target of the host programs that uses Qt and has too few files for headers of its own.
function(kub_reuse_headers target)
    if(KUB_PRECOMPILE_ONCE)
        target_precompile_headers(${target} REUSE_FROM precompiled_headers)
    endif()
endfunction()

# For one with more files.
function(kub_precompile_headers target)
    if(KUB_PRECOMPILE)
        target_precompile_headers(${target} PRIVATE ${KUB_PRECOMPILED_HEADERS})
    endif()
    kub_reuse_headers(${target})
endfunction()

kub_precompile_once(precompiled_headers Qt6::Core ${KUB_PRECOMPILED_HEADERS})
