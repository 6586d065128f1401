# The memory benchmark loads its jemalloc and mimalloc peers at run time with dlopen.
target_link_libraries(bench_memory PRIVATE ${CMAKE_DL_LIBS})
