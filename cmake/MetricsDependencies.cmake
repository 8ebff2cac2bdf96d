# Boost::headers and Threads::Threads.
find_package(Threads REQUIRED)

if(CMAKE_CROSSCOMPILING AND WIN32)
    # Boost's headers are the same for every system, so those of this machine serve; of its other headers the
    # compiler must see none.
    set(borrowed ${PROJECT_BINARY_DIR}/borrowed-include)
    file(MAKE_DIRECTORY ${borrowed})
    file(CREATE_LINK /usr/include/boost ${borrowed}/boost SYMBOLIC)
    add_library(Boost::headers INTERFACE IMPORTED)
    target_include_directories(Boost::headers INTERFACE ${borrowed})
else()
    find_package(Boost REQUIRED)
endif()
