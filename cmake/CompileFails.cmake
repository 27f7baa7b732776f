# Checks that SOURCE compiles or, if CASE is set, that it fails to compile with CASE defined and
# with a message that matches EXPECT.

list(TRANSFORM INCLUDES PREPEND "-I")
set(compile "${COMPILER}" -std=c++20 -fsyntax-only -DFMT_HEADER_ONLY ${INCLUDES})
if(CASE)
   list(APPEND compile "-D${CASE}")
endif()

execute_process(COMMAND ${compile} "${SOURCE}" RESULT_VARIABLE result ERROR_VARIABLE messages)
if(NOT CASE AND NOT result EQUAL 0)
   message(FATAL_ERROR "The source does not compile without any case:\n${messages}")
elseif(CASE AND result EQUAL 0)
   message(FATAL_ERROR "The source compiles with ${CASE}.")
elseif(CASE AND NOT messages MATCHES "${EXPECT}")
   message(FATAL_ERROR "No message matches '${EXPECT}':\n${messages}")
endif()
