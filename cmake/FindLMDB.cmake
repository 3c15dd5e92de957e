# LMDB, the peer that kelp_bench measures the Kelp tables against. Defines LMDB::LMDB when the
# library and its header are found (Debian: liblmdb-dev).
find_path(LMDB_INCLUDE_DIR lmdb.h)
find_library(LMDB_LIBRARY lmdb)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(LMDB REQUIRED_VARS LMDB_LIBRARY LMDB_INCLUDE_DIR)
if(LMDB_FOUND AND NOT TARGET LMDB::LMDB)
  add_library(LMDB::LMDB UNKNOWN IMPORTED)
  set_target_properties(LMDB::LMDB PROPERTIES IMPORTED_LOCATION ${LMDB_LIBRARY}
                        INTERFACE_INCLUDE_DIRECTORIES ${LMDB_INCLUDE_DIR})
endif()
mark_as_advanced(LMDB_INCLUDE_DIR LMDB_LIBRARY)
