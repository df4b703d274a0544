# The table macros in C11 and in C++17: one program that prints every row
# the macros make, built in both languages, the two outputs compared; and
# rows that must not compile, each expected to stop the build with its own
# "kavor table:" message.
configure_file(param_xml_table_test.c ${CMAKE_CURRENT_BINARY_DIR}/param_xml_table_test_cxx.cpp COPYONLY)
add_executable(param_xml_table_c_test param_xml_table_test.c)
add_executable(param_xml_table_cxx_test ${CMAKE_CURRENT_BINARY_DIR}/param_xml_table_test_cxx.cpp)
set_target_properties(param_xml_table_c_test PROPERTIES C_STANDARD 11 C_EXTENSIONS OFF)
foreach(lang c cxx)
  target_include_directories(param_xml_table_${lang}_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(param_xml_table_${lang}_test PRIVATE kavor_internal)
  kavor_warnings(param_xml_table_${lang}_test)
endforeach()
add_test(NAME param_xml_table.c_rows_equal_cxx_rows
  COMMAND sh -c "\"$0\" > rows_c.txt && \"$1\" > rows_cxx.txt && cmp rows_c.txt rows_cxx.txt"
    $<TARGET_FILE:param_xml_table_c_test> $<TARGET_FILE:param_xml_table_cxx_test>
  WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})

set(PX_MISUSE_SRC ${CMAKE_CURRENT_SOURCE_DIR}/param_xml_table_misuse.c)
set(PX_MISUSE_FLAGS -Wall -Wextra -Werror -fsyntax-only)
foreach(dir ${KAVOR_PUBLIC_INCLUDE_DIRS} ${LIBXML2_INCLUDE_DIRS})
  list(APPEND PX_MISUSE_FLAGS -I${dir})
endforeach()
# case number @ the message (a regular expression) it must fail with
set(PX_MISUSE_CASES
  "1@field must be one integer of 1, 2, 4 or 8 bytes"
  "2@field must be one integer of 1, 2, 4 or 8 bytes"
  "3@(this form takes an array field|count must be 1 to 999999999)"
  "4@count over the array"
  "5@string capacity over the field"
  "6@field must be one float or double"
  "7@the count field must be an int"
  "8@buffer pointers and buffer counts must have the same number of entries"
  "9@buffer counts must be an array of int"
  "10@an enumerated value must be an int or an enum of int size"
  "11@a list field must be a zhead_t"
  "12@PX_STRUM takes a pointer field"
  "13@a string field must be a character array"
  "14@format must be PT_FMT_DEC, PT_FMT_HEXL or PT_FMT_HEXU"
  "15@field must be a structure"
  "16@a list node must begin with a struct znode")
foreach(lang c cxx)
  if(lang STREQUAL c)
    set(cmd ${CMAKE_C_COMPILER} -std=c11 ${PX_MISUSE_FLAGS})
  else()
    set(cmd ${CMAKE_CXX_COMPILER} -x c++ -std=c++17 ${PX_MISUSE_FLAGS})
  endif()
  # The good rows compile with the same command: a refusal below is the
  # macro's, not the command line's.
  add_test(NAME param_xml_table_misuse.${lang}.good_rows_compile
    COMMAND ${cmd} -DPX_CASE=0 ${PX_MISUSE_SRC})
  foreach(case ${PX_MISUSE_CASES})
    string(REPLACE "@" ";" parts "${case}")
    list(GET parts 0 n)
    list(GET parts 1 msg)
    add_test(NAME param_xml_table_misuse.${lang}.case_${n}
      COMMAND ${cmd} -DPX_CASE=${n} ${PX_MISUSE_SRC})
    # The message alone passes the test: it appears only when the build stops.
    set_tests_properties(param_xml_table_misuse.${lang}.case_${n} PROPERTIES
      PASS_REGULAR_EXPRESSION "kavor table: ${msg}")
  endforeach()
endforeach()
