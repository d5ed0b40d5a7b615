// Tool definition files (".vyxtool"): the reader shared by the library, the
// single-file loader and the check, the record factory, the inter-marker
// distance table, and the three writers.
//
// File layout, whitespace-separated tokens (the reader ignores where lines
// break; the writers put one item per line):
//   name                 one token, at most 199 characters
//   kind                 one character, 'T' (tool) or 'C' (calibrator)
//   N                    marker count, 1..200
//   N x "x y z mask"     tool-frame coordinates (same unit as the 3D marker
//                        points), mask = fullMarkerMask(N) on every line
//   2                    tip-section count
//   x y z                tool tip
//   x y z                second point on the tip axis
// Nothing after the second tip-section point is read.
#pragma once

#include "tools/ToolDefinition.h"

#include <array>
#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <vector>

// Content of one tool definition as parsed, before it becomes a library
// record. The ROM tool file reader produces the same shape.
struct ToolFileContent {
    std::string toolName;
    char toolKind = 'T';
    std::int32_t markerCount = 0;
    std::int32_t markerMask = 0;          // the mask every marker line carried
    std::vector<float> markerPositions;   // 3 * markerCount, x y z per marker
    std::array<float, 6> tipPoints{};     // tip, then the second point
};

// Cache of a tool definition kept by the self-calibration and coordinate
// renewal procedures, written back with WrtieFormatToolInfoFronCache. Unlike a
// file read, every marker keeps its own mask, so the writer can express any
// constellation; the reader accepts the result only when all masks equal
// fullMarkerMask(markerCount).
struct T_ToolCoorSysInfo {
    std::string toolName;                 // one token, 1..199 characters
    std::string filePath;                 // where the writer puts the file
    char toolKind = 'T';                  // 'T' or 'C'
    std::int32_t markerCount = 0;         // 1..200
    std::vector<float> markerPositions;   // 3 * markerCount, tool frame
    std::vector<std::int32_t> markerMasks;  // one per marker
    std::array<float, 6> tipPoints{};     // tip, then the second point, tool frame
};

// The mask a marker line must carry in a file of markerCount markers: the
// integer part of 2^N - 1, one bit per marker. A 32-bit mask has no room for
// more than 31 markers, so from 32 markers on the value saturates at
// 2147483647; the reader, the writers and the distance table all use this
// same value.
std::int32_t fullMarkerMask(int markerCount);

// Whether bit markerIndex of a marker mask is set. Bits 0..30 are tested
// directly; bit 30 also stands for every marker beyond it, which is what the
// saturated mask of a large tool means.
bool maskCoversMarker(std::int32_t mask, int markerIndex);

// Parses a whole tool definition from the stream. Returns true and replaces
// content only when every rule of the layout above holds; on failure content
// is untouched. Numbers are read in the classic "C" locale; the stream gets
// its own locale back afterwards.
bool parseToolStream(std::istream& in, ToolFileContent& content);

// Opens path as text and parses it as parseToolStream does. False, content
// untouched, for a null path or a file that cannot be opened.
bool readToolFile(const char* path, ToolFileContent& content);

// Builds the library record of a parsed definition: positions and their
// second copy, every mask set to the mask read, one tip pair, zeroed scratch,
// one empty residual list per marker, no pairs, and the distance table of the
// positions. filePath is where the writers will write the tool back.
std::unique_ptr<T_ToolPtMatchInfo> makeToolRecord(const ToolFileContent& content,
                                                  std::string filePath);

// Rebuilds info.distanceTable (markerCount x markerCount, CV_32F) from the
// marker positions, or from their second copy when useSecondCopy is true.
// Entry (i, j) is the Euclidean distance between markers i and j, kept only
// when maskCoversMarker(markerMasks[i], j); a record without a mask per
// marker keeps every pair. A record whose chosen copy holds fewer than
// 3 * markerCount values, or whose count is below 1, is left unchanged.
void CalculateDisWithPointsArr(T_ToolPtMatchInfo& info, bool useSecondCopy);

// Parses the file at path into data without touching any library. On success
// returns 0 and overwrites the whole record: name, kind, count, positions
// (rows past the count zero), tip-section count 2, both tip-section points,
// reserved bytes zero. Returns -1 for any failure (null path, unreadable or
// malformed file) and leaves data untouched.
int checkToolFile(const char* path, T_ToolFileData& data);

// Full writer for four-marker tools: sets info.toolKind to 'T', then writes
// name, "T", the count, exactly four marker lines "x y z 15" whatever the
// count (markers the record does not hold are written as zeros), the
// tip-section count 2 * tipPairCount and that many tip-section points (zeros
// where the record holds none), each line ended by a single line feed, to
// info.filePath, truncating it. A tool of another count therefore does not
// read back. Returns 1 when the file could be opened for writing, else 0.
int writeToolFileFull(T_ToolPtMatchInfo& info);

// Rewrites the tip section of info's file: keeps its first markerCount + 3
// lines verbatim (read with a 1024-byte line buffer, so a longer line counts
// as several), then writes the tip-section count 2 * tipPairCount and the
// tip-section points from memory. Returns 1 when the file was rewritten; 0,
// with the file untouched, when it cannot be opened, holds fewer lines than
// kept, or the record's count is below 1.
int rewriteToolTipSection(const T_ToolPtMatchInfo& info);

// Rewrites the tip section of info's file with a pivot result, merging the
// points in memory with those the file holds. The first markerCount + 3 lines
// are kept verbatim (1024-byte line buffer); of the rest, a line reading
// exactly "2" is dropped and the numbers of the others are the old tip
// section: values 1-3 the old tip, 4-6 the old second point (missing values
// count as 0; a token that is not a number counts as present, NaN). Then the
// count 2 * tipPairCount and two rows by mode:
//   1 (the result is the tip): the tip from memory, then the old second point,
//     or the one in memory when the old one is (0, 0, 0);
//   2 (the result is the second point): the old tip, then the tip from memory
//     as the second point; or, when the old tip is (0, 0, 0), both points
//     from memory;
//   any other: no rows.
// Values as "%f", one blank apart. Returns true when written; false, with the
// file untouched, when it cannot be read or holds fewer lines than kept, or the
// record's count is below 1; false after truncation when writing fails.
bool rewritePivotTipSection(const T_ToolPtMatchInfo& info, int mode);

// The cache of a library record: name, file path, kind, count, positions,
// masks and first tip pair.
T_ToolCoorSysInfo toolCacheOf(const T_ToolPtMatchInfo& tool);

// Writes the cached tool to cache->filePath in the file layout, each marker
// line carrying that marker's own mask and the tip-section count 2. Returns 1
// when written; 0 for a null or inconsistent cache (name empty, over 199
// characters or containing blanks, kind other than 'T'/'C', count outside
// 1..200, fewer positions or masks than markers), which writes nothing, and 0
// when the file cannot be opened.
int WrtieFormatToolInfoFronCache(const T_ToolCoorSysInfo* cache);
