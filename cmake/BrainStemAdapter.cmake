# The SDK adapter (src/hubs/stem/SdkBackend.cpp) against one set of BrainStem2 headers. The SDK
# versions differ in ways the adapter absorbs at compile time; each difference is probed here
# rather than read from a version number, so an SDK is judged by what its headers declare.
include(CheckCXXSourceCompiles)

function(tarvel_brainstem_probe include_dir key out_definitions)
  set(CMAKE_REQUIRED_INCLUDES ${include_dir})
  # Compile only: declarations are what differ, and a stand-in header set has nothing to link.
  set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
  set(CMAKE_REQUIRED_QUIET ON)
  check_cxx_source_compiles("#include <BrainStem2/BrainStem-all.h>
    const char* probe() { return aError_GetErrorDescription(aErrNone); }"
    TARVEL_BRAINSTEM_${key}_ERROR_DESCRIPTION)
  check_cxx_source_compiles("#include <BrainStem2/BrainStem-all.h>
    uint8_t probe() { return aDiscovery_EnumerateModules(USB, nullptr, nullptr, 0x0100007F); }"
    TARVEL_BRAINSTEM_${key}_DISCOVERY_INTERFACE)
  check_cxx_source_compiles("#include <BrainStem2/BrainStem-all.h>
    aErr probe(aUSBHub3c& stem, const uint8_t* bytes) { return stem.pd[0].setUEIBytes(48, bytes, 16); }"
    TARVEL_BRAINSTEM_${key}_SET_UEI_BYTES)
  set(${out_definitions}
    TARVEL_BRAINSTEM_HAS_ERROR_DESCRIPTION=$<BOOL:${TARVEL_BRAINSTEM_${key}_ERROR_DESCRIPTION}>
    TARVEL_BRAINSTEM_DISCOVERY_TAKES_INTERFACE=$<BOOL:${TARVEL_BRAINSTEM_${key}_DISCOVERY_INTERFACE}>
    TARVEL_BRAINSTEM_HAS_SET_UEI_BYTES=$<BOOL:${TARVEL_BRAINSTEM_${key}_SET_UEI_BYTES}>
    PARENT_SCOPE)
endfunction()

# The hub library module `target` (see src/hubs/stem/module): the adapter compiled against the
# headers under include_dir, with the part of the seam it shares with Tarvel. The caller links
# the vendor library. Sources are found under ${PROJECT_SOURCE_DIR}/src both in Tarvel's tree
# and in the module's installed source folder, which keeps the same layout.
function(tarvel_add_hub_module target include_dir key)
  set(stem ${PROJECT_SOURCE_DIR}/src/hubs/stem)
  add_library(${target} MODULE ${stem}/module/ModuleEntry.cpp ${stem}/SdkBackend.cpp ${stem}/Backend.cpp)
  tarvel_brainstem_probe(${include_dir} ${key} definitions)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  # The vendor headers are not ours to keep warning-free.
  target_include_directories(${target} SYSTEM PRIVATE ${include_dir})
  target_compile_definitions(${target} PRIVATE ${definitions})
  target_link_libraries(${target} PRIVATE Qt6::Core)
  # Only the C entry points leave the module; its copy of the seam stays its own.
  set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME tarvel-brainstem AUTOMOC OFF
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(TARGET tarvel_warnings)
    target_link_libraries(${target} PRIVATE tarvel_warnings)
  endif()
endfunction()
