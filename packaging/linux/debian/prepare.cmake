# As Debian wants it, in the folder that becomes the package: documents compressed, without a date.
file(GLOB_RECURSE FILES ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.1
  ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/changelog)
execute_process(COMMAND gzip -9n ${FILES} COMMAND_ERROR_IS_FATAL ANY)
