#pragma once
// What a vault restore is about to make or move in a user's folder, written down in the vault first, so that the next
// one can clear up after one that was killed.

#include <string>
#include <vector>

namespace tidewrack {

class RestoreMark {
  public:
    // `vault` is the vault's folder. Nothing is written yet.
    explicit RestoreMark(const std::string& vault);
    RestoreMark(const RestoreMark&) = delete;
    RestoreMark& operator=(const RestoreMark&) = delete;
    ~RestoreMark(); // removes what was written, unless leave() was called

    // In `folder`, a copy under the name `temporary` is going to be `name`; what has that name becomes `aside`, if
    // anything. In the place of what was written before. A vault that can't be written to is no reason not to restore.
    void write(const std::string& folder, const std::string& temporary, const std::string& name,
               const std::string& aside) const;
    // The copy could not be removed again.
    void leave() { isLeft_ = true; }

  private:
    std::string path_;
    bool isLeft_ = false;
};

// Removes the copies that killed restores were making. What one had moved aside gets its name back where nothing has
// taken that: returns those paths. What can't be done now is tried again the next time.
std::vector<std::string> clearCutShort(const std::string& vault);

} // namespace tidewrack
