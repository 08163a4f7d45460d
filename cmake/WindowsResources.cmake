# What the program has in itself beside code: its version, and the texts of its entries in the event log.

set(file_name tarvex.exe)
set(file_type VFT_APP)
configure_file(packaging/version.rc.in ${PROJECT_BINARY_DIR}/packaging/program.rc @ONLY)

find_program(WINDMC i686-w64-mingw32-windmc REQUIRED)
set(events ${PROJECT_BINARY_DIR}/packaging/events)
file(MAKE_DIRECTORY ${events})
add_custom_command(OUTPUT ${events}/events.rc ${events}/Tarvex_en.bin ${events}/Tarvex_ja.bin
  COMMAND ${WINDMC} --codepage_in=65001 --headerdir=${events} --rcdir=${events}
    ${PROJECT_SOURCE_DIR}/host/service/log/windows/events.mc
  DEPENDS host/service/log/windows/events.mc)
set_source_files_properties(${events}/events.rc PROPERTIES INCLUDE_DIRECTORIES ${events}
  OBJECT_DEPENDS "${events}/Tarvex_en.bin;${events}/Tarvex_ja.bin")
target_sources(tarvex_host PRIVATE ${PROJECT_BINARY_DIR}/packaging/program.rc ${events}/events.rc)
