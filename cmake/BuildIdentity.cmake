# The identity of a build: a digest of everything that the helper program is made of. The library and the
# program carry it, so that each knows the other.
#
#   cmake -DROOT=... -DBUILT_WITH=... -DLIST=<file with the sources, one a line> -DOUTPUT=<folder> -P this
file(STRINGS "${LIST}" sources)
set(digests "${BUILT_WITH}\n")
foreach(source IN LISTS sources)
  file(SHA256 "${ROOT}/${source}" digest)
  string(APPEND digests "${source} ${digest}\n")
endforeach()
string(SHA256 identity "${digests}")
foreach(name BuildIdentity ProgramNote)
  configure_file("${ROOT}/cmake/${name}.cpp.in" "${OUTPUT}/${name}.cpp" @ONLY)
endforeach()
