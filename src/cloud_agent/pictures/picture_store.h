// The pictures that the agent keeps for the cloud: copies of the camera's, each under a
// name of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <string>

namespace agent {

/// Used on the event thread. The directory belongs to one store at a time, in all
/// processes of the machine.
class PictureStore {
 public:
  struct Options {
    std::string directory;     ///< where the copies go; made when it is missing
    std::string url;           ///< of that directory; empty: its file:// URL
    std::string id_directory;  ///< holds ID.jpg for sources that are numbers; may be empty
    std::size_t keep = 5000;   ///< how many pictures stay; the oldest go first
    std::uint64_t keep_bytes = std::uint64_t{2} << 30;  ///< the same in bytes of all together
    std::uint64_t max_bytes = std::uint64_t{16} << 20;  ///< of one picture
  };

  struct Picture {
    std::string name;  ///< of the file in the directory; empty when there is none
    std::string url;   ///< empty when there is none
  };

  explicit PictureStore(Options options);
  ~PictureStore();
  PictureStore(const PictureStore&) = delete;
  PictureStore& operator=(const PictureStore&) = delete;

  /// Makes the directory, makes sure that no other store uses it, takes stock of the
  /// pictures in it, removes what an earlier run left unfinished.
  /// @param error receives one line when the directory cannot be used.
  bool Open(std::string* error);

  /// Copies a picture. Where the disk is full, old pictures make room. A picture under
  /// its final name is always whole, but not synced to the disk: see docs/delivery.md.
  /// @param source path of the picture, or decimal digits: an image id.
  /// @param name   what the copy's name begins with; random digits make it unique.
  /// @return empty, after a line in the log, when there is no copy. Throws nothing.
  Picture Store(const std::string& source, const std::string& name) noexcept;

  /// Removes pictures that nobody was told of.
  /// @param name as Store() returned it.
  void Remove(const std::string& name);

  /// How many calls of Store() ended without a copy.
  std::uint64_t failed() const { return failed_; }

 private:
  struct Kept {
    std::string name;
    std::uint64_t bytes;
  };

  bool Lock(std::string* error);
  void TakeStock();
  std::string PathOf(const std::string& source) const;
  std::string UniqueName(const std::string& name);
  /// Throws std::runtime_error when there is no copy.
  void Copy(const std::string& source, const std::string& name);
  void RefuseLarge(std::uint64_t bytes) const;
  void MakeRoom(std::uint64_t bytes);
  void Keep(const std::string& name, std::uint64_t bytes);
  void RemoveOldest();

  Options options_;
  int lock_ = -1;          // file descriptor
  std::deque<Kept> kept_;  // oldest first
  std::uint64_t kept_bytes_ = 0;
  std::uint64_t failed_ = 0;
  std::mt19937 random_{std::random_device{}()};
};

}  // namespace agent
