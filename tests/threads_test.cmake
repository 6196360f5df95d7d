# Would the thread sanitizer's build have every case that it is to run? Here all cases are built, whatever their names
# are made of, and tell their names themselves.
#
# usage: cmake -DPROGRAMS=<area>_test,... -P threads_test.cmake
include(${CMAKE_CURRENT_LIST_DIR}/threads.cmake)

set(lost)
set(count 0)
string(REPLACE "," ";" PROGRAMS "${PROGRAMS}")
foreach(program ${PROGRAMS})
  cmake_path(GET program FILENAME area)
  string(REGEX REPLACE "_test$" "" area ${area})
  file(GLOB sources ${CMAKE_CURRENT_LIST_DIR}/${area}/*_test.cpp)
  rvn_thread_sources(taken ${sources})
  set(texts)
  foreach(source ${taken})
    file(READ ${source} text)
    string(APPEND texts "${text}")
  endforeach()

  execute_process(COMMAND ${program} --gtest_list_tests OUTPUT_VARIABLE listed COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE "[ \t]*#[^\n]*" "" listed "${listed}")
  string(REPLACE "\n" ";" listed "${listed}")
  foreach(line ${listed})
    if(line MATCHES "^([^ ].*)\\.$")
      set(suite ${CMAKE_MATCH_1})
    elseif(line MATCHES "^  (.*)$" AND "${suite}.${line}" MATCHES "Thread")
      string(STRIP "${line}" case)
      math(EXPR count "${count} + 1")
      # What stands before and behind a slash is the parameter's.
      string(REGEX REPLACE "^.*/" "" suiteWritten "${suite}")
      string(REGEX REPLACE "/.*$" "" caseWritten "${case}")
      if(NOT texts MATCHES "${suiteWritten},[ \n]*${caseWritten}[)]")
        list(APPEND lost "${area}/${suite}.${case}")
      endif()
    endif()
  endforeach()
endforeach()

if(lost OR count EQUAL 0)
  message(FATAL_ERROR "of ${count} cases that are to run under the thread sanitizer, its build would lose: ${lost}")
endif()
message("${count} cases for the thread sanitizer, in files that its build takes")
