# One library per folder of src/. Each declares the libraries it links, and gets an
# include root of its own: a folder in the build holding only a link to its sources,
# so "kit/Recording.hpp" resolves only in targets that link tavorin_kit. Reaching a
# header of a library one does not link fails to compile.
#
#   tavorin_library(NAME tavorin_x DIR x/y LINKS tavorin_base ... [PRIVATE ...]
#                   [FORBID asio curl ...] [PCH <heavy/header.hpp> ...])
#
# FORBID names outside headers (by their first path element) that the folder's
# sources must never include; the layering test reads them with the links.
set(TAVORIN_LAYERS_FILE ${CMAKE_BINARY_DIR}/layers.txt)
file(WRITE ${TAVORIN_LAYERS_FILE} "")
set_property(GLOBAL PROPERTY TAVORIN_LIBRARY_DIRS "")

function(tavorin_library)
  cmake_parse_arguments(L "" "NAME;DIR" "LINKS;PRIVATE;FORBID;PCH" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${L_DIR}/*.cpp)
  if(NOT sources)
    return()
  endif()
  set(root ${CMAKE_BINARY_DIR}/include/${L_NAME})
  get_filename_component(parent ${root}/${L_DIR} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${L_DIR} ${root}/${L_DIR} SYMBOLIC)
  add_library(${L_NAME} STATIC ${sources})
  target_include_directories(${L_NAME} PUBLIC ${root})
  target_link_libraries(${L_NAME} PUBLIC ${L_LINKS} PRIVATE ${L_PRIVATE})
  if(L_PCH)
    target_precompile_headers(${L_NAME} PRIVATE ${L_PCH})
  endif()
  # The folders this one may include from: its own and those of what it links, transitively.
  set(allowed ${L_DIR})
  set(queue ${L_LINKS})
  while(queue)
    list(POP_FRONT queue dep)
    get_property(dir GLOBAL PROPERTY TAVORIN_DIR_${dep})
    if(dir AND NOT dir IN_LIST allowed)
      list(APPEND allowed ${dir})
      get_property(more GLOBAL PROPERTY TAVORIN_LINKS_${dep})
      list(APPEND queue ${more})
    endif()
  endwhile()
  set_property(GLOBAL PROPERTY TAVORIN_DIR_${L_NAME} ${L_DIR})
  set_property(GLOBAL PROPERTY TAVORIN_LINKS_${L_NAME} ${L_LINKS})
  string(REPLACE ";" "," allowed "${allowed}")
  string(REPLACE ";" "," forbid "${L_FORBID}")
  file(APPEND ${TAVORIN_LAYERS_FILE} "${L_DIR}|${allowed}|${forbid}\n")
endfunction()
