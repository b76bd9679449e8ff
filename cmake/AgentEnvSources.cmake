# libzetAgentEnv: records, configuration language, state machines, version.
file(GLOB AGENTENV_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/AgentEnv/*.cpp)
file(GLOB AGENTENV_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/AgentEnv/*.h)
add_library(zetAgentEnv SHARED ${AGENTENV_SOURCES})
add_library(ZetAgentEnv::zetAgentEnv ALIAS zetAgentEnv)
target_link_libraries(zetAgentEnv PUBLIC zet)
target_include_directories(zetAgentEnv PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(zetAgentEnv PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})

# Build identifier, copyright line and compiler options for AgentEnvVersion.
find_package(Git QUIET)
set(AGENTENV_REVISION "unknown")
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} rev-parse --short=12 HEAD
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE rev OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE rc ERROR_QUIET)
  if(rc EQUAL 0)
    set(AGENTENV_REVISION ${rev})
  endif()
endif()
string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type_upper)
get_directory_property(dir_options COMPILE_OPTIONS)
list(JOIN dir_options " " dir_options)
set(AGENTENV_BUILD_ID "${PROJECT_VERSION}-${AGENTENV_REVISION}-${CMAKE_BUILD_TYPE}")
set(AGENTENV_COPYRIGHT "Copyright (c) 2026 The ZetAgentEnv developers")
string(STRIP "${CMAKE_CXX_COMPILER} ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${build_type_upper}} ${dir_options} -std=c++20 -fPIC" AGENTENV_OPTIONS)
string(REPLACE "\\" "\\\\" AGENTENV_OPTIONS "${AGENTENV_OPTIONS}")
string(REPLACE "\"" "\\\"" AGENTENV_OPTIONS "${AGENTENV_OPTIONS}")
target_compile_definitions(zetAgentEnv PRIVATE
  AGENTENV_BUILD_ID="${AGENTENV_BUILD_ID}"
  AGENTENV_COPYRIGHT="${AGENTENV_COPYRIGHT}"
  AGENTENV_OPTIONS="${AGENTENV_OPTIONS}")
