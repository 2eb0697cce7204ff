# tav_layer(NAME DEPS...): a static library made of every .cc file of the calling directory
# (main.cc excepted).  Layers are kept in separate libraries so that each one, and the tests
# of each one, can be built without the layers above it.
function(tav_layer name)
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  list(FILTER srcs EXCLUDE REGEX "/main\\.cc$")
  if(srcs)
    add_library(${name} STATIC ${srcs})
    target_link_libraries(${name} PUBLIC ${ARGN})
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${ARGN})
  endif()
endfunction()
