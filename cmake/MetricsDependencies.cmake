# TBB::tbb, Boost::headers and Threads::Threads.
#
# A cross build for Windows may be given a Windows oneTBB with -DTBB_DIR=... Without one every source is still
# compiled and every test is still run: the headers of oneTBB and Boost are the same for every system, so those
# of this machine are used, and a test-support library stands in for the few functions of the runtime. What is
# built so is for testing and is not installed.
find_package(Threads REQUIRED)

if(CMAKE_CROSSCOMPILING AND WIN32)
    # The compiler must not see all of this machine's headers, only these.
    set(borrowed ${PROJECT_BINARY_DIR}/borrowed-include)
    file(MAKE_DIRECTORY ${borrowed})
    add_library(Boost::headers INTERFACE IMPORTED)
    file(CREATE_LINK /usr/include/boost ${borrowed}/boost SYMBOLIC)
    target_include_directories(Boost::headers INTERFACE ${borrowed})
    if(TBB_DIR)
        find_package(TBB REQUIRED)
    else()
        set(METRICS_TBB_STAND_IN ON)
        file(CREATE_LINK /usr/include/tbb ${borrowed}/tbb SYMBOLIC)
        file(CREATE_LINK /usr/include/oneapi ${borrowed}/oneapi SYMBOLIC)
        add_library(metrics_tbb_stand_in STATIC ${PROJECT_SOURCE_DIR}/tests/support/tbb_runtime_windows.cpp)
        target_compile_features(metrics_tbb_stand_in PRIVATE cxx_std_20)
        target_include_directories(metrics_tbb_stand_in SYSTEM PUBLIC ${borrowed})
        add_library(TBB::tbb ALIAS metrics_tbb_stand_in)
    endif()
else()
    find_package(TBB REQUIRED)
    find_package(Boost REQUIRED)
endif()
