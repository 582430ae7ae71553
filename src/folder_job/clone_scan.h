#pragma once
// The scan of a folder job's source tree: every supported image, in pre-order, with where its
// PDF will lie, written into the job's list.

#include "core/file_names.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <set>

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
    // The real folders walked so far: a folder reached again through a link (a loop of links
    // among them) is not walked twice, while files reached through links are listed.
    std::set<FolderIdentity> entered{};

    // Files matched in `folder` and below, names that are not UTF-8 included. A folder that
    // cannot be read is passed over silently; a list that cannot be written raises.
    int SearchCloneFiles(const QString &folder, const QString &output);
};

} // namespace pw
