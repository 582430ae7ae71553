#pragma once
// Sample files made by the tests, named after their case.

#include <QString>

#include <vector>

// A TIFF of `pages` small greyscale directories; those listed in `reduced` are marked as
// reduced-resolution images, the way scanners store a preview.
void WriteTiff(const QString &path, int pages, const std::vector<int> &reduced = {});

// A PDF written by qpdf: `pages` empty Letter pages under one /Pages node.
void WriteQpdfPdf(const QString &path, int pages);
