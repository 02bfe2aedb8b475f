# Fails when README.md no longer shows the minimal example files exactly as
# they are, so that the page and the code cannot drift apart.
#   cmake -DREADME=... -DSERVER=... -DCLIENT=... -P CheckReadme.cmake
file(READ ${README} readme)
foreach(source IN ITEMS ${SERVER} ${CLIENT})
  file(READ ${source} text)
  string(FIND "${readme}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "README.md does not show ${source} as it is")
  endif()
endforeach()
