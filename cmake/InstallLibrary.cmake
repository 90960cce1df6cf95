# Puts a library of the project into the folder of all of them, where it looks for the others: beside
# itself. Links that only a linker would follow are left out.
function(kub_install_library target)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${target} LIBRARY DESTINATION ${KUB_LIBDIR} NAMELINK_SKIP)
endfunction()

# The same for a library that authors of plug-ins link with: with the link for linkers, and as the target
# KubDmEngine::<target> of the CMake package.
function(kub_install_engine_library target)
    add_library(KubDmEngine::${target} ALIAS ${target})
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${target} EXPORT KubDmEngine LIBRARY DESTINATION ${KUB_LIBDIR})
endfunction()
