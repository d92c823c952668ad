# Boot images: one assembly per image, and the dump text that the program carries.
find_program(NASM nasm REQUIRED)

# assemble_flat(<output> <source> [definition...]): nasm -f bin; the include files are those of the source's folder and
# of src/format/images, all of which the output depends on. Every definition is passed on with -D.
function(assemble_flat output source)
  list(TRANSFORM ARGN PREPEND -D OUTPUT_VARIABLE definitions)
  cmake_path(GET source PARENT_PATH folder)
  file(GLOB includes CONFIGURE_DEPENDS ${folder}/*.inc ${PROJECT_SOURCE_DIR}/src/format/images/*.inc)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${NASM} -f bin -Werror -I ${folder}/ -I ${PROJECT_SOURCE_DIR}/src/format/images/ ${definitions}
            -o ${output} ${source}
    DEPENDS ${source} ${includes}
    VERBATIM)
endfunction()

# boot_image(<procedure> <source> <bytes> [OFFSET <first offset column>] [DEFINE definition...]): assembles an image and
# makes <procedure>.inc from it, a string literal with the lines of its dump. A length other than <bytes> stops the build.
function(boot_image procedure source bytes)
  cmake_parse_arguments(ARG "" "OFFSET" "DEFINE" ${ARGN})
  if(NOT ARG_OFFSET)
    set(ARG_OFFSET 0)
  endif()
  set(binary ${PROJECT_BINARY_DIR}/images/${procedure}.bin)
  set(dump ${PROJECT_BINARY_DIR}/images/${procedure}.inc)
  assemble_flat(${binary} ${PROJECT_SOURCE_DIR}/src/format/images/${source} ${ARG_DEFINE})
  add_custom_command(
    OUTPUT ${dump}
    COMMAND ${CMAKE_COMMAND} -D BINARY=${binary} -D DUMP=${dump} -D BYTES=${bytes} -D OFFSET=${ARG_OFFSET} -P
            ${PROJECT_SOURCE_DIR}/cmake/dump_image.cmake
    DEPENDS ${binary} ${PROJECT_SOURCE_DIR}/cmake/dump_image.cmake
    VERBATIM)
  set_property(GLOBAL APPEND PROPERTY BOOT_IMAGE_DUMPS ${dump})
endfunction()
