# Called by cpack once the files are staged.
execute_process(
  COMMAND "${CPACK_VARNEL_PACK}" "${CPACK_TEMPORARY_DIRECTORY}" "${CPACK_VARNEL_DEBUG}" "${CPACK_PACKAGE_VERSION}"
          "${CPACK_PACKAGE_DIRECTORY}/packages"
  COMMAND_ERROR_IS_FATAL ANY)
