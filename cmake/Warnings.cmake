# Warnings are errors everywhere, the C header test included.
function(transfer_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
  # __FILE__ relative to the source root keeps log lines short.
  target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
endfunction()
