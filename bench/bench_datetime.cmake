# The HTTP date benchmark compares with curl_getdate.
find_package(CURL REQUIRED)
target_link_libraries(bench_datetime PRIVATE CURL::libcurl)
