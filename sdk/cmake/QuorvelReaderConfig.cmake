# The package QuorvelReader: the target QuorvelReader::QuorvelReader (the header) and the function
# quorvel_add_reader. All paths are relative to this file, so the sdk folder can be moved.
if(NOT TARGET QuorvelReader::QuorvelReader)
  get_filename_component(_quorvel_include "${CMAKE_CURRENT_LIST_DIR}/../../../include" ABSOLUTE)
  add_library(QuorvelReader::QuorvelReader INTERFACE IMPORTED)
  target_include_directories(QuorvelReader::QuorvelReader INTERFACE "${_quorvel_include}")
  unset(_quorvel_include)
endif()
include("${CMAKE_CURRENT_LIST_DIR}/QuorvelReaderFunctions.cmake")
