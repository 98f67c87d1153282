# The layers of src/, lowest first. Each folder is a static library, tarvel_<folder>, that may use
# only the folders of the layers below its own: it links the layer under it (and so everything
# lower), and scripts/check-layers, which every build runs first, refuses an include that reaches
# sideways or up. Folders that share a line are one layer and know nothing of each other. The
# front ends on the last line (and tarvel-sim, tarvel-helper, the tests) may use everything.
set(TARVEL_LAYERS
  "core"
  "usb hubs metrics"
  "configurator"
  "station"
  "records"
  "restore"
  "engines"
  "localport"
  "unattended doctor"
  "cli app")

set(TARVEL_LAYER_BELOW "")
set(TARVEL_LAYERS_SEEN "")

# tarvel_library(FOLDER SOURCES...): the folder's library, linked to the layer below its own.
function(tarvel_library folder)
  set(below "")
  set(found OFF)
  foreach(layer IN LISTS TARVEL_LAYERS)
    string(REPLACE " " ";" members "${layer}")
    if(folder IN_LIST members)
      set(found ON)
      break()
    endif()
    set(below ${members})
  endforeach()
  if(NOT found)
    message(FATAL_ERROR "src/${folder} is in no layer of cmake/Layers.cmake")
  endif()
  set(target tarvel_${folder})
  add_library(${target} STATIC ${ARGN})
  tarvel_precompile(${target})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${target} PRIVATE tarvel_warnings)
  foreach(lower IN LISTS below)
    target_link_libraries(${target} PUBLIC tarvel_${lower})
  endforeach()
  add_dependencies(${target} tarvel_layer_check)
endfunction()

add_custom_target(tarvel_layer_check
  COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-layers
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "Checking that no folder of src/ includes one above it")
