# tarn_flags - the one place for warnings, the language level and floating point.
add_library(tarn_flags INTERFACE)
target_include_directories(tarn_flags INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(tarn_flags INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(tarn_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    -Wformat=2 -Werror
    # GCC 12 takes "text" + std::string for an overlapping copy (GCC bug 105651).
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    # The effect chain gives the same samples on every build: no fused multiply-add, no fast-math.
    -ffp-contract=off)

if(TARN_SANITIZE)
    add_compile_options(-fsanitize=${TARN_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${TARN_SANITIZE})
endif()
if(TARN_FUZZ)
    # Coverage for all own code; the fuzz targets alone link the driver.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
