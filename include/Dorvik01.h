// Dorvik01: storage and retrieval engine for text databases. One include for all.
//
// The classic interface lives in namespace dorvik::classic, so that its exported
// symbols never meet an application's own CString or CFile at link time. Each header
// below brings its names into the global namespace with using-declarations, so classic
// programs read as before; a program that wants the global namespace left alone
// includes <dorvik/dorvik.hpp> instead. DiacritizeWord and DiacritizeBuffer keep C
// linkage and stay global.
#pragma once

#include "dorvik/Arrays.h"
#include "dorvik/BaseMemFile.h"
#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitArraySaver.h"
#include "dorvik/BitsBinFile.h"
#include "dorvik/Collections.h"
#include "dorvik/CriticalSection.h"
#include "dorvik/Diacritize.h"
#include "dorvik/Exceptions.h"
#include "dorvik/File.h"
#include "dorvik/Hierarchy.h"
#include "dorvik/HtmlText.h"
#include "dorvik/IXFile.h"
#include "dorvik/Maps.h"
#include "dorvik/MemBinFile.h"
#include "dorvik/MemBitsBinFile.h"
#include "dorvik/MemFile.h"
#include "dorvik/MemIXFile.h"
#include "dorvik/MemNDimBinFile.h"
#include "dorvik/MemTextBinFile.h"
#include "dorvik/MyDWordArray.h"
#include "dorvik/NDimBinFile.h"
#include "dorvik/NDimBitsBinFile.h"
#include "dorvik/Platform.h"
#include "dorvik/SortTree.h"
#include "dorvik/String.h"
#include "dorvik/StringToken.h"
#include "dorvik/TextBinFile.h"
#include "dorvik/XMLDocument.h"
#include "dorvik/XMLNode.h"
