#pragma once
// "clone.xml", the folder job's work list: every file found, where its PDF goes, and what
// became of it. The list on disk is a complete document after every file found and after every
// outcome, at a constant cost per file: a file found is written over the closing tags together
// with new closing tags, in one write; an outcome is written in place into a slot of blanks
// that the file's tag reserves behind its status. Any well-formed list is read, also one
// written by hand or by another program; such a list is rewritten whole for each outcome.

#include <QString>

#include <memory>
#include <vector>

namespace pw {

// The recompression name chosen for each image class, or "" where none is.
struct CloneEncodings {
    QString EncodColor;
    QString EncodGraycale;
    QString EncodBW;
    // The language of the PDFs' text layer, "" for none: kept with the job so that a resume
    // makes the rest searchable too.
    QString ocr;
};

struct CloneFileEntry {
    QString name;         // the source file's name
    QString path;         // the folder that holds it, without a trailing separator
    QString targetfile;   // the PDF's name
    QString targetfolder; // the PDF's folder, without a trailing separator
};

// Writes a job's list while its tree is scanned.
class CloneListWriter {
public:
    explicit CloneListWriter(QString xmlPath);
    ~CloneListWriter();

    // A new job: the last list is deleted and a skeleton with the job's encodings written.
    void startNewJob(const CloneEncodings &encodings);
    // Appends one File, but only when its source exists as a file. A list that is no longer
    // the one this writer left (or none at all) is taken up as it is, or replaced by a skeleton
    // when it cannot be read. Raises a RuntimeError when the list cannot be written.
    void AddCloneXmlFile(const CloneFileEntry &file);

private:
    bool ourTailIsThere() const;
    void rebuildFrom(const CloneFileEntry *file);

    QString xmlPath_;
    qint64 tail_ = -1; // where the closing tags start, while the file is the one we wrote
    qint64 size_ = -1;
};

// The list as the conversion loop walks it.
class CloneList {
public:
    CloneList();
    ~CloneList();

    // False when the file cannot be read or is not well-formed.
    bool load(const QString &xmlPath);
    // The encodings of "Clone/Settings"; nullopt-like: `found` false when there is no such
    // element.
    CloneEncodings settings(bool &found) const;
    bool hasFiles() const; // "Clone/Files" exists
    // Every child node of "Clone/Files", in document order.
    int count() const;
    // The attribute `name` of node `index`; raises a RuntimeError when the node has none.
    QString attribute(int index, const char *name) const;
    // Records the outcome of node `index` on disk: in its slot when it has one, else by
    // rewriting the whole list.
    void setStatus(int index, const QString &status);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

// The width of a status slot: the longest outcome, "Unable to Create Folder".
inline constexpr int kStatusSlot = 23;

} // namespace pw
