# Manual pages for varnel and each subcommand, written by help2man from the
# tool's own --help on every build of the tool, installed with it.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
  message(STATUS "help2man not found: no manual pages (scripts/bootstrap installs it)")
  return()
endif()

set(VARNEL_MAN_DIR ${PROJECT_BINARY_DIR}/man)
add_custom_command(OUTPUT ${VARNEL_MAN_DIR}/varnel.1
  COMMAND ${PROJECT_SOURCE_DIR}/cmake/varnel-man-pages.sh $<TARGET_FILE:varnel> ${VARNEL_MAN_DIR}
          ${PROJECT_VERSION}
  DEPENDS varnel ${PROJECT_SOURCE_DIR}/cmake/varnel-man-pages.sh
  COMMENT "Writing the manual pages of varnel")
add_custom_target(varnel_man_pages ALL DEPENDS ${VARNEL_MAN_DIR}/varnel.1)
install(DIRECTORY ${VARNEL_MAN_DIR}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Tool
        FILES_MATCHING PATTERN "*.1")
