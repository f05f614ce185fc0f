# -DSANITIZE=address,undefined builds everything with those sanitizers.
set(SANITIZE "" CACHE STRING "Comma-separated sanitizers to build with")
if(SANITIZE)
  add_compile_options(-fsanitize=${SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SANITIZE})
endif()
