# kub_install_completions(PROGRAM): what bash, zsh and fish need to complete its command lines, in the
# folder completions of the build and where each of them looks for it.
function(kub_install_completions PROGRAM)
    set(sources ${PROJECT_SOURCE_DIR}/packaging/completions)
    set(folder ${CMAKE_BINARY_DIR}/completions)
    configure_file(${sources}/completion.bash.in ${folder}/bash/${PROGRAM} @ONLY)
    configure_file(${sources}/completion.zsh.in ${folder}/zsh/_${PROGRAM} @ONLY)
    configure_file(${sources}/completion.fish.in ${folder}/fish/${PROGRAM}.fish @ONLY)
    install(FILES ${folder}/bash/${PROGRAM}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${folder}/zsh/_${PROGRAM}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
    install(FILES ${folder}/fish/${PROGRAM}.fish
            DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endfunction()
