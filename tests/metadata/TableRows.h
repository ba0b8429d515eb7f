#pragma once

#include <ostream>

namespace testing_support {

// Rows of test tables print as their names in test listings and failure messages (bring it in
// with a using-declaration in the namespace of the rows).
template <class Row>
requires requires(const Row& row) {
    row.name;
}
void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

}  // namespace testing_support
