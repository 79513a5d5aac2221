# Starting and stopping child processes and a private user manager, for the tests and the
# benchmarks alike (no GoogleTest), so it is defined by whichever of the two is configured first.
if(NOT TARGET zon_peer_process)
  add_library(zon_peer_process STATIC
    ${CMAKE_CURRENT_LIST_DIR}/PeerProcess.cpp ${CMAKE_CURRENT_LIST_DIR}/PeerProcess.h
    ${CMAKE_CURRENT_LIST_DIR}/PrivateUserManager.cpp ${CMAKE_CURRENT_LIST_DIR}/PrivateUserManager.h)
  target_include_directories(zon_peer_process PUBLIC ${CMAKE_CURRENT_LIST_DIR}/..)
  target_link_libraries(zon_peer_process PRIVATE zon_compile_options)
endif()
