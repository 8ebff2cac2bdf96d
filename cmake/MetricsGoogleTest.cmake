# GTest::gtest and GTest::gtest_main. A cross build makes them from the sources that come with the packages.
if(CMAKE_CROSSCOMPILING)
    set(gtest_disable_pthreads ON)  # the mingw compiler needs no -pthread
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
    find_package(GTest REQUIRED)
endif()
