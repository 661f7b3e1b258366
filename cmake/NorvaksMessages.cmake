# Message tables and catalogs from .msg files; installed for users of the library too.
#
#   norvaks_message_table(TARGET FILE.msg...)
#     Makes the table of each file and adds it to the target: FILE_msg.h to be included, with the
#     names of the indexes, and the record itself. The target may be of C, C++ or both.
#   norvaks_message_catalog(NAME OUTPUT.cat MODEL_DIRECTORY FILE.msg...)
#     A custom target NAME that makes one catalog of the files, which are translations of the files
#     of the same names in MODEL_DIRECTORY and are checked against them.

find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_program(NORVAKS_GENCAT gencat REQUIRED)
find_program(NORVAKS_MESSAGES norvaks-messages REQUIRED
  HINTS ${CMAKE_CURRENT_LIST_DIR}/../tools ${CMAKE_CURRENT_LIST_DIR}/../../../bin
        ${CMAKE_CURRENT_LIST_DIR}/../../../../bin)

function(norvaks_message_table target)
  get_property(languages GLOBAL PROPERTY ENABLED_LANGUAGES)
  set(directory ${CMAKE_CURRENT_BINARY_DIR}/${target}_msg)
  file(MAKE_DIRECTORY ${directory})
  foreach(source IN LISTS ARGN)
    get_filename_component(source ${source} ABSOLUTE)
    get_filename_component(module ${source} NAME_WE)
    set(header ${directory}/${module}_msg.h)
    set(code ${directory}/${module}_msg.c)
    add_custom_command(OUTPUT ${header} ${code}
      COMMAND ${Python3_EXECUTABLE} ${NORVAKS_MESSAGES} table ${source} ${header} ${code}
      DEPENDS ${source} ${NORVAKS_MESSAGES}
      COMMENT "Message table ${module}")
    # In a project without C the file would silently be no source. It is C++ as well.
    if(NOT "C" IN_LIST languages)
      set_source_files_properties(${code} PROPERTIES LANGUAGE CXX)
    endif()
    target_sources(${target} PRIVATE ${header} ${code})
  endforeach()
  target_include_directories(${target} PRIVATE ${directory})
endfunction()

function(norvaks_message_catalog name output models)
  get_filename_component(models ${models} ABSOLUTE)
  get_filename_component(directory ${output} DIRECTORY)
  file(MAKE_DIRECTORY ${directory})
  set(checks)
  set(files)
  foreach(file IN LISTS ARGN)
    get_filename_component(file ${file} ABSOLUTE)
    get_filename_component(module ${file} NAME)
    list(APPEND files ${file})
    list(APPEND checks
      COMMAND ${Python3_EXECUTABLE} ${NORVAKS_MESSAGES} check ${models}/${module} ${file})
    list(APPEND model_files ${models}/${module})
  endforeach()
  # gencat merges into a catalog that exists.
  add_custom_command(OUTPUT ${output}
    ${checks}
    COMMAND ${CMAKE_COMMAND} -E rm -f ${output}
    COMMAND ${NORVAKS_GENCAT} ${output} ${files}
    DEPENDS ${files} ${model_files} ${NORVAKS_MESSAGES}
    COMMENT "Message catalog ${name}")
  add_custom_target(${name} ALL DEPENDS ${output})
endfunction()
