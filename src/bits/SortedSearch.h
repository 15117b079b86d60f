// The search of a sorted view of integers, shared by the number array and the integer
// index file. `compare(i)` tells how element i of the view stands to the value sought:
// below 0 when it is less, 0 when equal, above 0 when greater.
#pragma once

namespace dorvik {

// Binary search of view positions 0 .. count - 1, probing the middle of the range left:
// true when `compare(middle)` is 0. Otherwise `low` is the first position above the
// value and `high` the one before it.
template <class Compare>
bool LocateSorted(int count, Compare compare, int& low, int& high, int& middle) {
    low = 0;
    high = count - 1;
    middle = 0;
    while (low <= high) {
        middle = low + (high - low) / 2;
        int c = compare(middle);
        if (c == 0) return true;
        if (c > 0)
            high = middle - 1;
        else
            low = middle + 1;
    }
    return false;
}

// Widens a hit at `position` to the whole run of equal elements. On entry `low` and
// `high` bound the run (the range the search had left); on return they are its first
// and last positions. Two binary searches, so a long run costs no more than a short one.
template <class Compare>
void WidenSortedRun(int position, Compare compare, int& low, int& high) {
    if (position <= low || compare(position - 1) != 0) {
        low = position;
    } else {
        int lo = low, hi = position - 1;
        while (lo < hi) {
            int mid = lo + (hi - lo) / 2;
            if (compare(mid) < 0)
                lo = mid + 1;
            else
                hi = mid;
        }
        low = lo;
    }
    if (position >= high || compare(position + 1) != 0) {
        high = position;
    } else {
        int lo = position + 1, hi = high;
        while (lo < hi) {
            int mid = lo + (hi - lo + 1) / 2;
            if (compare(mid) > 0)
                hi = mid - 1;
            else
                lo = mid;
        }
        high = lo;
    }
}

// The run of the value in the view: found, or not with low the first position above it
// and high = low - 1.
struct SortedRun {
    bool found;
    int low;
    int high;
};

template <class Compare>
SortedRun FindSortedRun(int count, Compare compare) {
    int low, high, middle;
    bool found = LocateSorted(count, compare, low, high, middle);
    if (found) WidenSortedRun(middle, compare, low, high);
    return SortedRun{found, low, high};
}

}  // namespace dorvik
