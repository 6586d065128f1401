# bench_xml compares with raw expat (the floor) and pugixml's DOM.
find_package(pugixml REQUIRED)
target_link_libraries(bench_xml PRIVATE EXPAT::EXPAT pugixml::pugixml)
