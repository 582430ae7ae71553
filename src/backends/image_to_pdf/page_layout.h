#pragma once

// Where an image goes on its page: the page's size, the image's scale and place on it, and the
// turn that shows a photo the right way up while its data stays as the camera stored it.

#include <array>
#include <optional>
#include <string>
#include <utility>

namespace pw::i2p {

// How an image meets a page of a given size: `Into` scales it to the largest size that shows
// all of it, `Fill` to the smallest that covers the page (the overhang is cut off), `Exact`
// stretches it to the page, `Shrink` is `Into` for images too large and leaves others at their
// own size.
enum class Fit { Into, Fill, Exact, Shrink };
enum class PageTurn { FollowImage, Portrait, Landscape };

// What the user asks of the pages made from images (a PDF's pages keep their own).
struct PageLayout {
    double width = 0, height = 0; // points; 0: each page is its image at its resolution
    Fit fit = Fit::Into;
    double margin = 0; // points, on every side
    PageTurn turn = PageTurn::FollowImage;
    double dpi = 0;        // resolution of images whose file states none (0: 72)
    bool forceDpi = false; // `dpi` also replaces what the files state
};

// The layout of the documents made from now on, for the whole process (documents already
// made keep theirs).
void setPageLayout(const PageLayout &layout);
PageLayout pageLayout();

// One image page as written.
struct Placement {
    double width = 0, height = 0;              // the page box, before the page's turn
    int rotate = 0;                            // the page's turn, clockwise, in degrees
    std::array<double, 6> matrix{};            // maps the image's unit square onto the page
    std::optional<std::array<double, 4>> clip; // x, y, width, height the image is cut to
};

// The page of an image `pixelsWide` x `pixelsHigh` as stored, at `xdpi` x `ydpi` (0: the file
// states none), whose EXIF/TIFF `orientation` code (1 to 8; others read as 1) says how it is
// shown upright. The page's turn does the rotations and the matrix the mirroring, so the
// image's data never needs to change; the page measures as the upright picture does.
Placement placeImage(const PageLayout &layout, int pixelsWide, int pixelsHigh, double xdpi,
                     double ydpi, int orientation);

// A page size as the user writes it: "A4", "Letter", "Legal", "A3", "A5" (any case), or
// "WxH" with an optional unit "mm", "in" or "pt" (points when none), in points; nullopt when
// it reads as none of them or is not above zero.
std::optional<std::pair<double, double>> parsePageSize(const std::string &text);
// A length with an optional unit as above, in points; nullopt when unreadable or negative.
std::optional<double> parseLength(const std::string &text);

} // namespace pw::i2p
