# Warnings, hardening and sanitizers, as two interface targets: everything we
# compile links zamc_compile; lib/ links zamc_library_compile on top of it.
add_library(zamc_compile INTERFACE)
target_include_directories(zamc_compile INTERFACE ${PROJECT_SOURCE_DIR}/include)
target_compile_options(zamc_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-qual -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast>
    # Nothing that we build names a path of the machine it was built on.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -fstack-protector-strong)
if(ZAMC_WERROR)
    target_compile_options(zamc_compile INTERFACE -Werror)
endif()
target_compile_definitions(zamc_compile INTERFACE _GNU_SOURCE)
# A platform with file calls or bounded functions of its own names the header that declares them; ours stand back then.
set(ZAMC_PLATFORM_VFS_HEADER "" CACHE STRING "Header with the platform's ZRT_VFS_ calls; empty: stdio serves")
set(ZAMC_PLATFORM_BOUNDED_HEADER "" CACHE STRING "Header with the platform's bounded functions; empty: our own serve")
foreach(header ZAMC_PLATFORM_VFS_HEADER ZAMC_PLATFORM_BOUNDED_HEADER)
    if(${header})
        target_compile_definitions(zamc_compile INTERFACE ${header}="${${header}}")
    endif()
endforeach()
if(ZAMC_SANITIZE)
    target_compile_options(zamc_compile INTERFACE -fsanitize=${ZAMC_SANITIZE} -fno-sanitize-recover=all
                                                  -fno-omit-frame-pointer)
    target_link_options(zamc_compile INTERFACE -fsanitize=${ZAMC_SANITIZE})
endif()

if(ZAMC_COVERAGE)
    # Atomic: threads count at the same time.
    target_compile_options(zamc_compile INTERFACE -fprofile-instr-generate -fcoverage-mapping -fprofile-update=atomic)
    target_link_options(zamc_compile INTERFACE -fprofile-instr-generate)
endif()
if(ZAMC_FUZZ)
    target_compile_options(zamc_compile INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(zamc_compile INTERFACE -fsanitize=fuzzer-no-link)
endif()

# What is shipped is hardened as well; tests are built without optimisation, which fortified headers do not take.
add_library(zamc_harden INTERFACE)
if(NOT ZAMC_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(zamc_harden INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    target_link_options(zamc_harden INTERFACE -Wl,-z,relro,-z,now)
endif()

# The library itself does without exceptions, RTTI and the C++ runtime library.
add_library(zamc_library_compile INTERFACE)
target_link_libraries(zamc_library_compile INTERFACE zamc_compile zamc_harden PkgConfig::LIBYANG)
target_include_directories(zamc_library_compile INTERFACE ${PROJECT_SOURCE_DIR}/lib)
target_compile_options(zamc_library_compile INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
    -fno-semantic-interposition)
