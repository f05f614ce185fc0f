# Compiler warnings for the project's own code; they are errors.
add_library(project_warnings INTERFACE)
target_compile_options(
  project_warnings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wold-style-cast
            -Woverloaded-virtual
            -Wnon-virtual-dtor
            -Wcast-qual
            -Wformat=2
            -Werror)
