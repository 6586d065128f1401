# The lock benchmarks compare with std::binary_semaphore, which needs C++20.
set_target_properties(bench_locks PROPERTIES CXX_STANDARD 20)
