# Runs zslsim once and checks its exit status and, when given, its stdout
# against an expected file, a text its stderr must hold, and its trace.
#   -DZSLSIM=binary -DARGS=a|b|c -DSTATUS=n [-DEXPECT=file] [-DSTDERR=text] [-DTRACE=file] -DWORK=dir

string(REPLACE "|" ";" args "${ARGS}")
file(MAKE_DIRECTORY ${WORK})
if(TRACE)
  list(PREPEND args --trace ${WORK}/trace.jsonl)
endif()
execute_process(COMMAND ${ZSLSIM} ${args}
  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)

set(report "command: ${ZSLSIM} ${args}\n--- stdout\n${out}--- stderr\n${err}")
if(NOT status STREQUAL STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${STATUS}\n${report}")
endif()
if(EXPECT)
  file(READ ${EXPECT} expected)
  if(NOT out STREQUAL expected)
    file(WRITE ${WORK}/stdout.txt "${out}")
    message(FATAL_ERROR "stdout differs from ${EXPECT} (got ${WORK}/stdout.txt; regenerate "
      "with: zslsim --summary-only SCENARIO > EXPECTED)\n--- expected\n${expected}${report}")
  endif()
endif()
if(STDERR)
  string(FIND "${err}" "${STDERR}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "stderr lacks \"${STDERR}\"\n${report}")
  endif()
endif()
if(TRACE)
  file(READ ${WORK}/trace.jsonl trace)
  file(READ ${TRACE} expected)
  if(NOT trace STREQUAL expected)
    message(FATAL_ERROR "trace differs from ${TRACE} (got ${WORK}/trace.jsonl)\n${report}")
  endif()
endif()
