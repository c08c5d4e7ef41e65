# cmake -DTARGET_FILE=<file> -DTAIL=<file> -P AppendToFile.cmake: puts the bytes of TAIL behind those of TARGET_FILE.

find_program(cat_program cat REQUIRED)
execute_process(
  COMMAND "${cat_program}" "${TARGET_FILE}" "${TAIL}"
  OUTPUT_FILE "${TARGET_FILE}.joined"
  COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD "${TARGET_FILE}.joined" PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
file(RENAME "${TARGET_FILE}.joined" "${TARGET_FILE}")
