# Installs the resources to PREFIX, puts PROGRAM beside them and asks it under some locales.
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=DESTDIR
                        ${CMAKE_COMMAND} -DCMAKE_INSTALL_PREFIX=${PREFIX}
                        -P ${RESOURCES}/cmake_install.cmake
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(COPY ${PROGRAM} DESTINATION ${PREFIX}/${BINDIR})
get_filename_component(name ${PROGRAM} NAME)

function(expect locale language)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env LC_ALL=${locale}
                            ${PREFIX}/${BINDIR}/${name}
                    OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE
                    COMMAND_ERROR_IS_FATAL ANY)
    if(NOT answer STREQUAL "${language}|Tarn studio|${VERSION}")
        message(SEND_ERROR "LC_ALL=${locale}: '${answer}' where ${language} was expected")
    endif()
endfunction()

expect(C ${LANGUAGE})
expect(tlh ${LANGUAGE})
expect(ja_JP.UTF-8 Japanese)
expect(zh_HK.UTF-8 Chinese-Taiwan)
file(REMOVE_RECURSE ${PREFIX})
