// Removing one element from an unordered contiguous list in O(1).
#pragma once

#include <cstdint>
#include <vector>

// Removes element `position` of `list` by moving the last element into its place, then calls
// `moved(element, position)` so the moved element's owner can note where it now is. The order of
// the list is not kept; nothing is allocated.
template <class Element, class Moved>
void SwapRemove(std::vector<Element>& list, uint32_t position, Moved moved) noexcept {
    list[position] = list.back();
    list.pop_back();
    if (position < list.size()) {
        moved(list[position], position);
    }
}
