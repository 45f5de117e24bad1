# lanscout_manual(PAGE COMPONENT): a page of man/, installed compressed, as Debian has them.
find_program(GZIP gzip REQUIRED)
function(lanscout_manual page component)
  set(compressed ${CMAKE_CURRENT_BINARY_DIR}/${page}.gz)
  add_custom_command(OUTPUT ${compressed} DEPENDS ${PROJECT_SOURCE_DIR}/man/${page} VERBATIM
    COMMAND sh -c [[exec "$1" -9nc "$2" > "$3"]] sh
            ${GZIP} ${PROJECT_SOURCE_DIR}/man/${page} ${compressed})
  add_custom_target(manual_${page} ALL DEPENDS ${compressed})
  install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
endfunction()
