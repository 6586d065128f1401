# The same settings and group linked in both orders, so that the loader builds the settings
# first (they wait as orphans and are adopted) in one executable and the group first in the other.
set(VANTA_STATIC_DIR ${CMAKE_CURRENT_LIST_DIR}/staticsettings)
vanta_add_suite(test_settings_static_groupfirst ${VANTA_STATIC_DIR}/staticgroup.cpp
  ${VANTA_STATIC_DIR}/staticmembers.cpp ${VANTA_STATIC_DIR}/staticsettings_test.cpp)
target_compile_definitions(test_settings_static_groupfirst PRIVATE VANTA_GROUP_BUILT_FIRST=1)
vanta_add_suite(test_settings_static_settingsfirst ${VANTA_STATIC_DIR}/staticmembers.cpp
  ${VANTA_STATIC_DIR}/staticgroup.cpp ${VANTA_STATIC_DIR}/staticsettings_test.cpp)
target_compile_definitions(test_settings_static_settingsfirst PRIVATE VANTA_GROUP_BUILT_FIRST=0)
