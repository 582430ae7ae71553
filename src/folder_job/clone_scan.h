#pragma once
// The scan of a folder job's source tree: every supported image, in pre-order, with where its
// PDF will lie, written into the job's list.

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace pw {

class CloneListWriter;

// The PDF's name: every occurrence of the extension in the whole name becomes "pdf".
QString CloneTargetFile(const QString &name);

// The PDF's folder for a file in `parent`, from the two boxes as they stand and the output root.
// The source is the box's text, not a cleaned path: a trailing separator or another case
// changes where the PDFs go, and that is kept.
QString CloneTargetFolder(const QString &parent, const QString &output, const QString &sourceBox,
                          const QString &outputBox);

struct CloneScan {
    QString filterPattern; // the image patterns of the file-type table's first row
    QString sourceBox, outputBox;
    CloneListWriter *list = nullptr;
    std::function<bool()> stopRequested;
    std::function<void()> yield;

    // Files matched in `folder` and below. Failures are passed over silently.
    int SearchCloneFiles(const QString &folder, const QString &output);
};

} // namespace pw
