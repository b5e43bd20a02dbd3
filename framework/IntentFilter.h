// Which broadcasts a receiver wants.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "framework/Object.h"

namespace zelkor::tessel {

class IntentFilter : public Object {
  public:
    IntentFilter() = default;
    explicit IntentFilter(std::vector<std::string> actions, bool internal = false)
        : mActions(std::move(actions)), mInternal(internal) {}

    void addAction(const std::string& action) { mActions.push_back(action); }
    const std::vector<std::string>& getActions() const { return mActions; }

    // Internal filters see only broadcasts that went through the internal
    // broadcast manager; the others only local ones.
    bool isInternal() const { return mInternal; }
    void setInternal(bool internal) { mInternal = internal; }

  private:
    std::vector<std::string> mActions;
    bool mInternal = false;
};

}  // namespace zelkor::tessel
