// ROM tool files: binary tool definitions in a fixed byte layout, of which
// only the fields a marker constellation needs are read. They are converted
// into ".vyxtool" files, or loaded into the tool library as they stand
// (ToolLibrary::ReadToolInfoResultRom / ReadFormatToolInfoFromFileRom).
//
// Fields, little-endian, at absolute offsets:
//   0x018  1 byte          read; not part of the tool definition
//   0x01C  signed 8-bit    marker count N, accepted in 1..200 (as a signed
//                          byte it cannot exceed 127)
//   0x024  4 bytes         read; not part of the tool definition
//   0x048  N x 3 float32   marker positions x, y, z, tool frame
//   0x138  N x 3 float32   per-marker vectors, read by the library loader only
//   0x250  bytes           tool name, up to the first zero byte
// Every field read must lie inside the file; a shorter file is refused.
#pragma once

#include <array>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

struct RomToolContent {
    std::uint8_t headerByte = 0;                // 0x18
    std::int32_t markerCount = 0;               // 0x1C, 1..200 once accepted
    std::array<std::uint8_t, 4> headerWord{};   // 0x24
    std::vector<float> markerPositions;         // 0x48, 3 * markerCount
    std::vector<float> markerVectors;           // 0x138, 3 * markerCount, or empty
    std::string toolName;                       // 0x250
};

// Reads the ROM tool file at path into content; the per-marker vectors at
// 0x138 are read (and must be present) only with readMarkerVectors. Returns
// true and replaces content when the file opens, holds every field read, the
// count lies in 1..200, every position is finite, and the name is 1..199
// bytes without blanks, ended by a zero byte inside the file (so that it
// stays one token of a tool file). Otherwise returns false, content untouched.
bool readRomToolFile(const char* path, RomToolContent& content, bool readMarkerVectors);

// Path of the ".vyxtool" file converted from romPath: the first "rom" in the
// whole text, searched from its start, replaced by "vyxtool". For an ordinary
// path that is the extension; a directory name holding those letters is
// changed instead, and a text without them comes back unchanged (the
// conversion then writes over its input after reading it).
std::string convertedToolFilePath(const std::string& romPath);

// Converts one ROM tool file into a tool file at convertedToolFilePath:
//   name "%s\n", "T\n", N "%d\n",
//   per marker "%f %f %f %d\n" (x, y, z, mask 2^N - 1 as fullMarkerMask),
//   "2\n", then "0.000000 0.000000 0.000000\n" twice (a ROM carries no tip).
// Returns 0 when written; -1 for a null path, a ROM that cannot be read or
// is refused by readRomToolFile, or an output file that cannot be created.
int convertRomToToolFile(const char* romPath);

// Reads rows x cols decimal numbers from a text block into values, row by
// row. Lines are read one at a time; numbers are separated by blanks, tabs or
// commas and may continue over several lines; blank lines are skipped; the
// line that completes the block may carry further text, which is dropped.
// Returns true and fills values when the block is complete; false, values
// untouched, for a null values, rows or cols below 1, text that is not a
// number, or a stream that ends first.
bool readParaFromFileStream(std::istream& in, double* values, int rows, int cols);
