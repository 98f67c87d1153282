# Manual pages made from the programs' own --help and --version with help2man, so they say what
# the programs say. Off by default: only the package needs them.
find_program(HELP2MAN help2man REQUIRED)
set(man_folder ${CMAKE_BINARY_DIR}/man)
set(man_pages)
foreach(entry "tarvel|tarvel|reset a bench of Macs (desktop application)"
              "tarvel-cli|tarvel-cli|reset a bench of Macs from a terminal"
              "tarvel-sim|tarvel-sim|simulated Tarvel station of hubs and Macs")
  string(REPLACE "|" ";" entry "${entry}")
  list(GET entry 0 target)
  list(GET entry 1 program)
  list(GET entry 2 summary)
  add_custom_command(OUTPUT ${man_folder}/${program}.1
    COMMAND ${CMAKE_COMMAND} -E make_directory ${man_folder}
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
      ${HELP2MAN} --no-info --name=${summary} --output=${man_folder}/${program}.1
      $<TARGET_FILE:${target}>
    DEPENDS ${target} VERBATIM)
  list(APPEND man_pages ${man_folder}/${program}.1)
endforeach()
add_custom_target(tarvel_man_pages ALL DEPENDS ${man_pages})
# The programs Tarvel runs by itself have no --help of their own: their pages are written by hand.
install(FILES ${man_pages} ${PROJECT_SOURCE_DIR}/docs/man/tarvel-pty.1
  ${PROJECT_SOURCE_DIR}/docs/man/tarvel-sim-cfgutil.1 DESTINATION share/man/man1)
