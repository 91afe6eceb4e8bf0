# ostrel_layer(<name> [FOLDER <path below src>] SOURCES ... HEADERS ... [PUBLIC ...] [PRIVATE ...])
#
# One static library a folder. Each publishes an include root that holds only its own folder, so that
# `#include "capture/DisplaySource.h"` compiles only where the target links ostrel::capture: a dependency that
# is not declared does not build. Headers are verified to compile alone (target all_verify_interface_header_sets).
function(ostrel_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 L "" "FOLDER" "PUBLIC;PRIVATE;SOURCES;HEADERS")
  if(NOT L_FOLDER)
    set(L_FOLDER ${name})
  endif()
  set(root ${CMAKE_BINARY_DIR}/inc/${name})
  cmake_path(GET L_FOLDER PARENT_PATH parent)
  file(MAKE_DIRECTORY ${root}/${parent})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${L_FOLDER} SYMBOLIC)
  list(TRANSFORM L_HEADERS PREPEND ${root}/${L_FOLDER}/)

  add_library(ostrel_${name} STATIC ${L_SOURCES})
  # AUTOMOC finds the real headers by itself; without this every QObject would be compiled twice.
  set_source_files_properties(${L_HEADERS} PROPERTIES SKIP_AUTOMOC ON)
  target_sources(ostrel_${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${root} FILES ${L_HEADERS})
  # Diagnostics and debug information name the source tree, not the link.
  target_compile_options(ostrel_${name} PUBLIC -ffile-prefix-map=${root}/=${PROJECT_SOURCE_DIR}/src/)
  target_link_libraries(ostrel_${name} PUBLIC ${L_PUBLIC} PRIVATE ${L_PRIVATE})
  ostrel_precompile(ostrel_${name} FIRST ostrel_base)
  set_target_properties(ostrel_${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON)
  add_library(ostrel::${name} ALIAS ostrel_${name})
endfunction()

# The headers that nearly every file needs, compiled once for all layers and once for all tests: a Qt file then takes a
# third of the time. What is compiled in another way than the first target can't use it.
# ostrel_precompile(<target> FIRST <target that has it compiled> [MORE HEADERS...])
function(ostrel_precompile target)
  cmake_parse_arguments(PARSE_ARGV 1 P "" "FIRST" "")
  if(target STREQUAL P_FIRST)
    target_precompile_headers(${target} PRIVATE
      <QByteArray> <QList> <QObject> <QString> <QtCore> <QCoroTask> <expected> <functional> <memory> <optional> <stop_token>
      ${P_UNPARSED_ARGUMENTS})
  else()
    target_precompile_headers(${target} REUSE_FROM ${P_FIRST})
  endif()
  # Without a time stamp in it, the precompiled header is a pure function of its input, and ccache may keep it.
  target_compile_options(${target} PRIVATE -Xclang -fno-pch-timestamp)
endfunction()
