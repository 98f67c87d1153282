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

# Compiles the adapter into `target` against the headers under include_dir.
function(tarvel_add_brainstem_adapter target include_dir key)
  tarvel_brainstem_probe(${include_dir} ${key} definitions)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/hubs/stem/SdkBackend.cpp)
  # The vendor headers are not ours to keep warning-free.
  target_include_directories(${target} SYSTEM PRIVATE ${include_dir})
  target_compile_definitions(${target} PRIVATE ${definitions})
endfunction()
