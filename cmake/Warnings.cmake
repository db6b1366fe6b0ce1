# Every target of ours gets the same warning set; third-party headers are system includes.
function(lorvane_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(LORVANE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
