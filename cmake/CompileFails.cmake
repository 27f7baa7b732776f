# Checks that SOURCE compiles without, and for the reason EXPECT not with, MUST_NOT_COMPILE.

list(TRANSFORM INCLUDES PREPEND "-I")
set(compile "${COMPILER}" -std=c++20 -fsyntax-only -DFMT_HEADER_ONLY ${INCLUDES})

execute_process(COMMAND ${compile} "${SOURCE}" RESULT_VARIABLE result ERROR_VARIABLE messages)
if(NOT result EQUAL 0)
   message(FATAL_ERROR "The source does not even compile without MUST_NOT_COMPILE:\n${messages}")
endif()

execute_process(COMMAND ${compile} -DMUST_NOT_COMPILE "${SOURCE}"
   RESULT_VARIABLE result ERROR_VARIABLE messages)
if(result EQUAL 0)
   message(FATAL_ERROR "The source compiles with MUST_NOT_COMPILE.")
elseif(NOT messages MATCHES "${EXPECT}")
   message(FATAL_ERROR "Nothing in these messages matches '${EXPECT}':\n${messages}")
endif()
