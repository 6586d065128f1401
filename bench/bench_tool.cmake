# The tool benchmark starts the built vanta tool.
if(TARGET vanta)
  add_dependencies(bench_tool vanta)
  target_compile_definitions(bench_tool PRIVATE VANTA_TOOL="$<TARGET_FILE:vanta>")
else()
  set_target_properties(bench_tool PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
