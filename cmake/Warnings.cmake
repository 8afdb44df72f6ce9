# -Wall -Wextra everywhere, the C header test included. Warnings are fatal only where
# TRANSFER_WERROR is on (developers and CI: scripts/test.sh): a user's or packager's
# compiler may warn where ours does not, and that must not break their build.
option(TRANSFER_WERROR "Treat compiler warnings as errors" OFF)

function(transfer_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra
    $<$<BOOL:${TRANSFER_WERROR}>:-Werror>
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
  # __FILE__ relative to the source root keeps log lines short.
  target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
endfunction()
