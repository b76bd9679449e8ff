# agentenv_check_test runs the agentenv command built beside it.
if(TARGET agentenv_check_test AND TARGET agentenv)
  target_compile_definitions(agentenv_check_test PRIVATE AGENTENV_COMMAND="$<TARGET_FILE:agentenv>")
  add_dependencies(agentenv_check_test agentenv)
endif()
