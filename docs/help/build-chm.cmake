# Compiles one language's help: cmake -DSOURCE=<language folder> -DWORK=<scratch folder>
#   -DOUTPUT=<.chm to write> -DCODEPAGE=<Windows code page of the language> -DCHMCMD=... -DICONV=...
# The pages are UTF-8 and say so; the project, contents and index files are
# read by the help viewer in the language's ANSI code page, so they are
# converted to it here and kept in UTF-8 in the sources.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
file(GLOB pages ${SOURCE}/*.html ${SOURCE}/*.css ${SOURCE}/*.png ${SOURCE}/*.gif)
file(COPY ${pages} DESTINATION ${WORK})
file(GLOB project ${SOURCE}/*.hhp ${SOURCE}/*.hhc ${SOURCE}/*.hhk)
foreach(f IN LISTS project)
  get_filename_component(name ${f} NAME)
  execute_process(COMMAND ${ICONV} -f UTF-8 -t ${CODEPAGE} ${f} OUTPUT_FILE ${WORK}/${name}
                  RESULT_VARIABLE status ERROR_VARIABLE error)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${f}: cannot be written in ${CODEPAGE}: ${error}")
  endif()
endforeach()
execute_process(COMMAND ${CHMCMD} help.hhp WORKING_DIRECTORY ${WORK}
                RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
# chmcmd only warns about a broken link or a missing page and still writes
# the file: a warning is a failure here.
if(NOT status EQUAL 0 OR out MATCHES "Warning|Error")
  message(FATAL_ERROR "chmcmd failed for ${SOURCE} (${status}):\n${out}")
endif()
file(GLOB built ${WORK}/*.chm)
list(LENGTH built count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "chmcmd wrote ${count} .chm files for ${SOURCE}")
endif()
file(COPY_FILE ${built} ${OUTPUT} ONLY_IF_DIFFERENT)
