# What only our own builds use: warnings as errors and sanitizers. Nothing of it reaches who links the library.
add_library(metrics_developer INTERFACE)
if(METRICS_DEVELOPER AND NOT MSVC)
    target_compile_options(metrics_developer INTERFACE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
        # GCC 12 sees overlapping copies in the inlined std::string operators (its bug 105651).
        $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
    if(CMAKE_UNITY_BUILD)  # where sources are included like headers
        target_compile_options(metrics_developer INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endif()
endif()
if(WIN32)
    target_compile_definitions(metrics_developer INTERFACE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
endif()
if(METRICS_SANITIZE)
    add_compile_options(-fsanitize=${METRICS_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${METRICS_SANITIZE})
endif()
