# Turns yang/*.yang into one C++ source of NUL-terminated texts, so that the
# built-in modules stay readable files and the generated one is never committed.
# Each file F.yang becomes the character array F with every "-" turned into "_".
function(zamc_embed_yang out)
    file(GLOB modules CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/yang/*.yang)
    set(generated ${PROJECT_BINARY_DIR}/generated/builtin_yang.cpp)
    add_custom_command(
        OUTPUT ${generated}
        COMMAND ${CMAKE_COMMAND} "-DMODULES=${modules}" -DOUTPUT=${generated}
                -P ${PROJECT_SOURCE_DIR}/cmake/EmbedYang.cmake
        DEPENDS ${modules} ${PROJECT_SOURCE_DIR}/cmake/EmbedYang.cmake
        VERBATIM)
    set(${out} ${generated} PARENT_SCOPE)
endfunction()
