# -DTRANSFER_SANITIZE=address  : AddressSanitizer + UndefinedBehaviorSanitizer
# -DTRANSFER_SANITIZE=thread   : ThreadSanitizer
if(TRANSFER_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TRANSFER_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT TRANSFER_SANITIZE STREQUAL "")
  message(FATAL_ERROR "TRANSFER_SANITIZE must be empty, address or thread")
endif()
# GCC's flow analysis reports false "maybe uninitialized" warnings inside the standard
# library (std::function, std::regex) once sanitizer instrumentation is added.
if(NOT TRANSFER_SANITIZE STREQUAL "" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wno-maybe-uninitialized)
endif()
