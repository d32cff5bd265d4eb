# Directories of the package are open to read, whatever umask it is made under.
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type d -exec chmod 755 {} +
                COMMAND_ERROR_IS_FATAL ANY)
