# The component: libKXData7.so.
add_library(KXData7 SHARED $<TARGET_OBJECTS:kxdata7_core>)
target_link_libraries(KXData7 PRIVATE kxdata7_core kxdata7_database)
