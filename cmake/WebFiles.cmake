# The files of the browser page, put into the program: a C++ file with a table of them (host/WebFiles.h).
#
# web/*.html, *.js and *.css are ours. The vendor's come by `npm ci` in a copy of web/'s package files within the
# build tree, made anew when these change; web/vendor.txt names those that the page needs.

function(web_files output)
  set(web ${CMAKE_SOURCE_DIR}/web)
  set(copy ${CMAKE_BINARY_DIR}/web)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${web}/vendor.txt)
  find_program(NPM npm)
  if(NOT NPM)
    message(FATAL_ERROR "npm is needed for the browser page's libraries: install nodejs with npm "
      "(on Debian: apt-get install nodejs npm), then configure again.")
  endif()

  file(MAKE_DIRECTORY ${copy})
  set(names)
  set(paths)
  file(GLOB ours CONFIGURE_DEPENDS ${web}/*.html ${web}/*.js ${web}/*.css)
  foreach(path ${ours})
    get_filename_component(name ${path} NAME)
    list(APPEND names ${name})
    list(APPEND paths ${path})
  endforeach()
  set(vendor)
  file(STRINGS ${web}/vendor.txt lines)
  foreach(line ${lines})
    if(NOT line MATCHES "^([^ ]+) ([^ ]+)$")
      message(FATAL_ERROR "web/vendor.txt: '${line}' is no path and name")
    endif()
    list(APPEND names ${CMAKE_MATCH_2})
    list(APPEND paths ${copy}/${CMAKE_MATCH_1})
    list(APPEND vendor ${copy}/${CMAKE_MATCH_1})
  endforeach()

  add_custom_command(OUTPUT ${copy}/fetched ${vendor}
    COMMAND ${CMAKE_COMMAND} -E copy ${web}/package.json ${web}/package-lock.json ${copy}
    COMMAND ${NPM} ci --omit=dev --ignore-scripts --no-audit --no-fund --silent
    COMMAND ${CMAKE_COMMAND} -E touch ${copy}/fetched ${vendor}
    DEPENDS ${web}/package.json ${web}/package-lock.json ${web}/vendor.txt
    WORKING_DIRECTORY ${copy}
    COMMENT "Fetching the browser page's libraries" VERBATIM)

  set(symbols "")
  set(table "")
  set(number 0)
  set(bytes "")
  foreach(name path IN ZIP_LISTS names paths)
    set(type "text/javascript")
    if(name MATCHES "\\.css$")
      set(type "text/css")
    elseif(name MATCHES "\\.html$")
      set(type "text/html")
    endif()
    string(APPEND bytes "asm(\".section .rodata\\n.global web_file_${number}, web_file_${number}_end\\n\"\n"
      "    \"web_file_${number}:\\n.incbin \\\"${path}\\\"\\nweb_file_${number}_end:\\n.byte 0\\n.previous\");\n")
    string(APPEND symbols "extern \"C\" const char web_file_${number}[], web_file_${number}_end[];\n")
    string(APPEND table
      "      {\"${name}\", \"${type}; charset=utf-8\", web_file_${number}, web_file_${number}_end},\n")
    math(EXPR number "${number} + 1")
  endforeach()
  set(source ${CMAKE_BINARY_DIR}/EmbeddedWebFiles.cpp)
  file(CONFIGURE OUTPUT ${source} @ONLY CONTENT [[
#include "host/WebFiles.h"

@bytes@
@symbols@
namespace nvadmin::host {

const std::vector<EmbeddedFile>& EmbeddedFiles() {
  static const std::vector<EmbeddedFile> kFiles{
@table@  };
  return kFiles;
}

}  // namespace nvadmin::host
]])
  set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS "${paths};${copy}/fetched")
  set(${output} ${source} PARENT_SCOPE)
endfunction()
