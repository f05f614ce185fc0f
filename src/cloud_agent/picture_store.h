// The image function that the agent lends to the plug-in: pictures are copied to
// where the cloud can fetch them.
#pragma once

#include <cstddef>
#include <string>

#include "cloud_agent/picture_index.h"

namespace agent {

/// Used on the event thread.
class PictureStore {
 public:
  struct Options {
    std::string directory;     ///< where the copies go; made when it is missing
    std::string url;           ///< of that directory; empty: its file:// URL
    std::string id_directory;  ///< holds ID.jpg for sources that are numbers; may be empty
    std::size_t keep = 5000;   ///< how many pictures stay; the oldest go first
    std::size_t max_bytes = std::size_t{16} << 20;  ///< of one picture
  };

  explicit PictureStore(Options options);

  /// Makes the directory, takes stock of the pictures in it, removes what an earlier
  /// run left unfinished.
  /// @param error receives one line when the directory cannot be used.
  bool Open(std::string* error);

  /// Copies a picture.
  /// @param source path of the picture, or decimal digits: an image id.
  /// @param name   file name of the copy; a picture of that name is replaced.
  /// @return its URL; empty, after a line in the log, when there is no copy. Throws
  ///         nothing.
  std::string Store(const std::string& source, const std::string& name) noexcept;

 private:
  void Note(const std::string& name);

  Options options_;
  PictureIndex index_;
};

}  // namespace agent
