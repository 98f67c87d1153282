# The hub library module's sources, installed so a technician can build the module against
# their own SDK with one cmake command (see src/hubs/stem/module/README). The layout is the
# tree's, so the module's CMakeLists.txt finds its sources the same way in both.
set(stem ${PROJECT_SOURCE_DIR}/src/hubs/stem)
set(destination share/tarvel/hub-module)
install(FILES ${stem}/module/CMakeLists.txt ${stem}/module/README DESTINATION ${destination})
install(FILES ${PROJECT_SOURCE_DIR}/cmake/BrainStemAdapter.cmake DESTINATION ${destination}/cmake)
install(FILES ${stem}/Backend.h ${stem}/Backend.cpp ${stem}/Module.h ${stem}/ModuleInterface.h
  ${stem}/SdkBackend.h ${stem}/SdkBackend.cpp ${stem}/Types.h
  DESTINATION ${destination}/src/hubs/stem)
install(FILES ${stem}/module/ModuleEntry.cpp DESTINATION ${destination}/src/hubs/stem/module)
