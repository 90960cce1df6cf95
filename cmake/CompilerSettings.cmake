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

# For libraries that whole messages and trees pass through: sanitized and not optimised, their tests
# would take longer than the compiler takes to optimise them.
function(kub_optimise_sanitized target)
    if(KUB_PRECOMPILE_ONCE AND KUB_SANITIZE)
        target_compile_options(${target} PRIVATE -O1)
        # Those that are read once for all targets are not those of an optimised one.
        set_target_properties(${target} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
    endif()
endfunction()
