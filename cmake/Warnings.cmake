# Compiler warnings for the project's own code. They are errors, but not to another project, whose
# compiler may have more of them.
add_library(mqttadapter_project_warnings INTERFACE)
target_compile_options(
  mqttadapter_project_warnings
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
            $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>)
