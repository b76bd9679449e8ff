# Plugins that type_map_test, agent_env_sm_test and agentenv_run_test load with dlopen through map
# files they write.
# They are built beside the test but never linked into it.
add_library(zetTestWidget MODULE ${CMAKE_CURRENT_SOURCE_DIR}/plugin/TestWidget.cpp)
target_link_libraries(zetTestWidget PRIVATE zet)
add_library(zetTestEmptyPlugin MODULE ${CMAKE_CURRENT_SOURCE_DIR}/plugin/EmptyPlugin.cpp)
add_library(zetTestClashingPlugin MODULE ${CMAKE_CURRENT_SOURCE_DIR}/plugin/ClashingPlugin.cpp)
target_link_libraries(zetTestClashingPlugin PRIVATE zet)

foreach(test type_map_test agent_env_sm_test agentenv_run_test)
  add_dependencies(${test} zetTestWidget zetTestEmptyPlugin zetTestClashingPlugin)
  target_compile_definitions(${test} PRIVATE
    ZET_TEST_WIDGET_PLUGIN="$<TARGET_FILE:zetTestWidget>"
    ZET_TEST_EMPTY_PLUGIN="$<TARGET_FILE:zetTestEmptyPlugin>"
    ZET_TEST_CLASHING_PLUGIN="$<TARGET_FILE:zetTestClashingPlugin>")
endforeach()

# agentenv_check_test runs the agentenv command built beside it.
if(TARGET agentenv_check_test AND TARGET agentenv)
  target_compile_definitions(agentenv_check_test PRIVATE AGENTENV_COMMAND="$<TARGET_FILE:agentenv>"
                                                         EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples")
  add_dependencies(agentenv_check_test agentenv)
endif()

# The mount tests run attrlog_peer as the serving process; both ends know the
# Test::Gauge type.
add_executable(attrlog_peer ${CMAKE_CURRENT_SOURCE_DIR}/peer/attrlog_peer.cpp ${CMAKE_CURRENT_SOURCE_DIR}/peer/Gauge.cpp)
target_link_libraries(attrlog_peer PRIVATE zet)
foreach(test mount_test agent_env_mount_test)
  target_sources(${test} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/peer/Gauge.cpp)
  target_compile_definitions(${test} PRIVATE ATTRLOG_PEER="$<TARGET_FILE:attrlog_peer>")
  add_dependencies(${test} attrlog_peer)
endforeach()

# agentenv_run_test runs agentenv run on the examples; readme_test runs the
# README's transcripts from the source folder.
foreach(test agentenv_run_test readme_test)
  if(TARGET ${test} AND TARGET agentenv)
    target_compile_definitions(${test} PRIVATE AGENTENV_COMMAND="$<TARGET_FILE:agentenv>"
                                               EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples"
                                               SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    add_dependencies(${test} agentenv)
  endif()
endforeach()
