/* Identities of libqueries_fixture_sparse.so, shared by its tables (C) and the tests (C++). */
#ifndef MDH_TEST_SPARSE_FIXTURE_H
#define MDH_TEST_SPARSE_FIXTURE_H

#define SPARSE_ITEM \
    { 0x00000000000000F0ull, 0x4000000000000000ull }
#define SPARSE_METHOD_NO_FILES \
    { 0x00000000000000F0ull, 0x0000000000000001ull }
#define SPARSE_METHOD_NO_POINTS \
    { 0x00000000000000F0ull, 0x0000000000000002ull }
#define SPARSE_FILE_PATH "zero/Only.cs"

#endif
