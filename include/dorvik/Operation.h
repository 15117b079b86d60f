// The operation flags shared by the searches and the set combiners.
#pragma once

namespace dorvik::classic {
// Four bit flags with two readings; the operation that takes the value fixes the
// reading.
//  - Selection (the Find families): opEqual, opGreater and opLess combine with |
//    (3 greater or equal, 5 less or equal, 6 not equal, 7 everything); opNot inverts
//    an opEqual selection where the operation says it honours it (9: not equal).
//  - Set operation (CBitArray::Mem, the collections' Save): exactly one of opOr
//    (union), opAnd (intersection), opXor (symmetric difference), opCopy (replace).
enum Operation {
    opEqual = 1,
    opGreater = 2,
    opLess = 4,
    opNot = 8,
    opOr = 1,
    opAnd = 2,
    opXor = 4,
    opCopy = 8
};

// Combined selection flags stay an Operation: opGreater | opEqual.
constexpr Operation operator|(Operation a, Operation b) {
    return static_cast<Operation>(static_cast<int>(a) | static_cast<int>(b));
}

inline Operation& operator|=(Operation& a, Operation b) { return a = a | b; }

}  // namespace dorvik::classic

using dorvik::classic::opAnd;
using dorvik::classic::opCopy;
using dorvik::classic::opEqual;
using dorvik::classic::Operation;
using dorvik::classic::opGreater;
using dorvik::classic::opLess;
using dorvik::classic::opNot;
using dorvik::classic::opOr;
using dorvik::classic::opXor;
