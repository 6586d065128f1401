# The load benchmark starts two small programs: one linking the core only, one the widgets too.
add_executable(load_core load/core.cpp)
target_link_libraries(load_core PRIVATE vantabase)
add_executable(load_widgets load/widgets.cpp)
target_link_libraries(load_widgets PRIVATE vantabase_widgets)
add_dependencies(bench_load load_core load_widgets)
target_compile_definitions(bench_load PRIVATE
  VANTA_LOAD_CORE="$<TARGET_FILE:load_core>" VANTA_LOAD_WIDGETS="$<TARGET_FILE:load_widgets>")
