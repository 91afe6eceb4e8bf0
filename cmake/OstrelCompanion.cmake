# The companion's bundle is part of the default target: the build tree then runs in place.
find_program(OSTREL_NPM npm REQUIRED)
set(companion ${PROJECT_SOURCE_DIR}/companion)
file(GLOB_RECURSE companionSources CONFIGURE_DEPENDS ${companion}/src/*.ts)
set(observerBundle ${OSTREL_RESOURCE_DIR}/Observer/dist/observer.mjs)

add_custom_command(
  OUTPUT ${companion}/node_modules/.package-lock.json
  COMMAND ${OSTREL_NPM} ci --no-audit --no-fund --loglevel=error
  DEPENDS ${companion}/package.json ${companion}/package-lock.json
  WORKING_DIRECTORY ${companion}
  COMMENT "Installing the companion's packages" VERBATIM)
add_custom_command(
  OUTPUT ${observerBundle}
  COMMAND ${OSTREL_NPM} run --silent build
  COMMAND ${CMAKE_COMMAND} -E make_directory ${OSTREL_RESOURCE_DIR}/Observer/dist
  COMMAND ${CMAKE_COMMAND} -E copy ${companion}/dist/observer.mjs ${observerBundle}
  DEPENDS ${companionSources} ${companion}/node_modules/.package-lock.json
  WORKING_DIRECTORY ${companion}
  COMMENT "Bundling the companion" VERBATIM)
add_custom_target(companion ALL DEPENDS ${observerBundle})
install(FILES ${observerBundle} DESTINATION ${CMAKE_INSTALL_DATADIR}/ostrel/Observer/dist)
