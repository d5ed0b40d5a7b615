// The tool library: every tool definition the host has made known, in load
// order, with the tool directory it was scanned from and the tool that the
// calibration procedures write back.
//
// The engine owns one ToolLibrary and calls it with its API mutex held; the
// receiver threads never touch it. Directory scans report to standard output,
// each line flushed: "[Message] " for progress, "[Warning] " for directory
// problems. Malformed tool files are skipped without a message.
#pragma once

#include "tools/ToolDefinition.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>

// Directory text as the library stores it: ending in '/'. A trailing '\\'
// from a host that writes Windows separators is taken as the separator and
// stored as '/', so "dir", "dir/" and "dir\\" name the same directory and
// give the same tool file paths. Any other text gets '/' appended; an empty
// text names the working directory, "./".
std::string normaliseToolDirectory(const std::string& directory);

class ToolLibrary {
public:
    using ToolList = std::list<std::unique_ptr<T_ToolPtMatchInfo>>;

    // Value of the selected tool index before a procedure selects a tool: it
    // lies beyond any list, so the writers write nothing.
    static constexpr std::uint32_t kNoToolSelected = 0xFFFFFFFFu;

    // ---- Loading ---------------------------------------------------------

    // With clearFirst, releases the whole library first; then scans path for
    // ".vyxtool" files, announces the ROM scan on its own message line, and
    // scans the same directory for ROM tool files. Returns 0 when at
    // least one scan opened the directory, -1 when neither did or path is null.
    int setToolInfoFilePath(const char* path, bool clearFirst);

    // The directory last opened by a scan, ending in '/'; empty before any.
    const std::string& toolInfoFilePath() const { return directory_; }

    // Scans dir for files whose name ends in ".vyxtool" (exactly, case
    // counts; the bare name ".vyxtool" included) and loads each in directory
    // order. Stores the normalised dir as the tool directory once it opens.
    // Returns false, after its warning, when dir is missing, unreadable or
    // cannot be opened (and for a null dir, silently).
    bool ReadToolInfoResult(const char* dir);

    // Loads tool directory + fileName and appends it on success; a file that
    // cannot be opened or parsed adds nothing.
    void ReadFormatToolInfoFromFile(const char* fileName);

    // Loads the one file at path, exactly as named, and appends it on success
    // with path as its file path. The tool directory is not used and not
    // changed, so later scans and writers see the directory as it was.
    void AddFormatToolInfoFromFile(const char* path);

    // Loads pathWithoutExtension + ".vyxtool" as AddFormatToolInfoFromFile
    // does. Always returns 0: the tool count tells whether the file loaded.
    int AddToolInfoResult(const char* pathWithoutExtension);

    // Scans dir for ROM tool files: every entry whose name ends in ".rom"
    // (case counts). Stores the normalised dir as the tool directory once it
    // opens; returns false after its warning when dir is missing or cannot be
    // opened. It prints no "attempt to open" line and makes no permission test.
    bool ReadToolInfoResultRom(const char* dir);

    // Loads the ROM tool file at tool directory + fileName (see
    // RomConversion.h) and appends it on success as a kind 'T' tool: name,
    // count and positions from the ROM, masks fullMarkerMask(N), a zero tip.
    // Its file path, where the writers put it back, is the same name with the
    // ".rom" ending replaced by ".vyxtool", so a calibrated ROM tool is saved
    // beside its ROM file, never over it. No companion file is looked for.
    void ReadFormatToolInfoFromFileRom(const char* fileName);

    // Appends a record made elsewhere (tool making); null is ignored.
    void append(std::unique_ptr<T_ToolPtMatchInfo> tool) {
        if (tool) tools_.push_back(std::move(tool));
    }

    // Frees every record. Afterwards the count is 0; pointers handed out by
    // getAllToolFilesBaseInfo are no longer valid.
    void ReleaseToolPtMatchList();

    // ---- Queries ---------------------------------------------------------

    // Number of tools loaded (the list's size, so it cannot drift from it).
    std::uint32_t count() const { return static_cast<std::uint32_t>(tools_.size()); }

    // Fills info[0..count()-1] in list order: name (pointer into the library,
    // valid until it is released), kind 1 for 'C' else 0, low byte of the
    // marker count. -1, writing nothing, when info is null or the library is
    // empty; else 0.
    int getAllToolFilesBaseInfo(t_ToolBaseInfo* info) const;

    // Looks name up in list order and stops at the first equal tool name; when
    // none matches, the last tool of the list answers. Sets count to its
    // marker count and appends its file positions (x, y, z per marker, not
    // the working copy) to *values. -1, with nothing written, when name or
    // values is null or the library is empty; else 0.
    int getSpecificToolFileInfoList(const char* name, int& count, std::list<float>* values) const;

    // As the list form, writing 3 * count floats into the caller's positions.
    int getSpecificToolFileInfoArray(const char* name, int& count, float* positions) const;

    // List position of the first tool named name, or -1 (also for null).
    int findFirstToolIndex(const char* name) const;
    // List position of the last tool named name, or -1: where definitions
    // share a name, the one loaded last wins.
    int findLastToolIndex(const char* name) const;
    // Tool at a list position, or null beyond the list.
    T_ToolPtMatchInfo* toolAt(std::uint32_t index);
    const T_ToolPtMatchInfo* toolAt(std::uint32_t index) const;

    // Iteration over the records in list order, for recognition. Records may
    // be modified through the iterators; the list itself changes only through
    // the loaders and ReleaseToolPtMatchList.
    ToolList::iterator begin() { return tools_.begin(); }
    ToolList::iterator end() { return tools_.end(); }
    ToolList::const_iterator begin() const { return tools_.begin(); }
    ToolList::const_iterator end() const { return tools_.end(); }
    // The list itself, for recognition, which records each tool's matches.
    ToolList& tools() { return tools_; }

    // ---- Writing back ----------------------------------------------------

    // The list position the writers act on; set by the calibration
    // procedures before they write.
    std::uint32_t selectedToolIndex() const { return selectedToolIndex_; }
    void setSelectedToolIndex(std::uint32_t index) { selectedToolIndex_ = index; }

    // Full writer (writeToolFileFull) on the selected tool. The argument is
    // not used: the selected index decides. Returns 1 when the file could be
    // opened for writing; 0 otherwise, also when no tool is at the index.
    int WriteFormatToolAllInfoFromFile(int index);

    // Tip-section rewriter (rewriteToolTipSection) on the selected tool; the
    // argument is not used. Returns 1 when rewritten, else 0.
    int WriteFormatToolInfoFromFile(int index);

    // Writes values to path (truncating) in list order, one "%f" value per
    // line, each ended by a line feed. Nothing happens for a null path or a
    // file that cannot be opened.
    static void WriteErroIntoFile(const char* path, const std::list<float>& values);

private:
    // The scan shared by both file types: ".vyxtool" files (with the
    // "attempt to open" message and the read-permission test) or ROM files.
    bool scanDirectory(const char* dir, bool romFiles);

    const T_ToolPtMatchInfo* lookUpWithFallThrough(const char* name) const;

    ToolList tools_;
    std::string directory_;
    std::uint32_t selectedToolIndex_ = kNoToolSelected;
};
