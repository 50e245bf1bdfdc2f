#pragma once

#include <QStringList>
#include <QTextStream>

namespace folivox {

// The mp4art program: cover art in an MP4's `covr` item.
//   --add IMAGE      adds a JPEG or PNG image after those already there
//   --replace IMAGE  replaces every image (or the one at --art-index) with it
//   --remove         removes every image (or the one at --art-index); the
//                    `covr` item goes with its last image
//   --list           prints index, type and size of each image
//   --art-index N    the image the other actions act on, from 0
class ArtCommand {
public:
    // Returns the exit status: 0 success, 1 a file failed, 2 usage.
    static int run(const QStringList& arguments, QTextStream& out, QTextStream& err);
};

} // namespace folivox
