#pragma once

#include <QStringList>
#include <QTextStream>

#include <cstdint>
#include <optional>

namespace folivox {

// The mp4tags program: sets iTunes items in MP4 files, with mp4v2's options.
//
// | option           | short | item   | value                                  |
// |------------------|-------|--------|----------------------------------------|
// | -song            | -s    | ©nam   | text                                   |
// | -artist          | -a    | ©ART   | text                                   |
// | -album           | -A    | ©alb   | text                                   |
// | -albumartist     | -R    | aART   | text                                   |
// | -year            | -y    | ©day   | text                                   |
// | -genre           | -g    | ©gen   | text (a numeric `gnre` is removed)     |
// | -comment         | -c    | ©cmt   | text                                   |
// | -writer          | -w    | ©wrt   | text                                   |
// | -lyrics          | -L    | ©lyr   | text                                   |
// | -grouping        | -G    | ©grp   | text                                   |
// | -encodedby       | -e    | ©enc   | text                                   |
// | -tool            | -E    | ©too   | text                                   |
// | -description     | -m    | desc   | text                                   |
// | -longdesc        | -l    | ldes   | text                                   |
// | -copyright       | -C    | cprt   | text                                   |
// | -type            | -i    | stik   | a media type name or 0-255, 1 byte     |
// | -track, -tracks  | -t -T | trkn   | 0-65535                                |
// | -disk, -disks    | -d -D | disk   | 0-65535                                |
// | -sortname        |       | sonm   | text                                   |
// | -sortartist      |       | soar   | text                                   |
// | -sortalbum       |       | soal   | text                                   |
// | -sortalbumartist |       | soaa   | text                                   |
// | -remove LETTERS  | -r    | the items of those short letters are removed    |
//
// An empty text removes its item. Every option replaces earlier copies of its
// item, so running the tool twice leaves one of each.
class TagsCommand {
public:
    // Media type names for -type: "audiobook" 2, "music" and "normal" 1,
    // "podcast" 21, "musicvideo" 6, "movie" 9, "tvshow" 10, "booklet" 11,
    // "ringtone" 14, "oldmovie" 0, "itunesu" 23; or the number.
    static std::optional<int> mediaTypeValue(const QString& name);

    // Runs the program on these arguments (without the program name).
    // Returns the exit status: 0 success, 1 a file failed, 2 usage.
    static int run(const QStringList& arguments, QTextStream& out, QTextStream& err);
};

} // namespace folivox
