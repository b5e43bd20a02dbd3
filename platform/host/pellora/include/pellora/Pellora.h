// The maker's event-reporting client, libpellora: an event is an id and a set
// of string values by key, handed to the reporting service in one piece.
//
// This is the host build of the client. It appends every event sent as one
// JSON line, {"id":<event id>,"values":{<key>:<value>,...}}, to
// "/data/vendor/pellora/events.jsonl" under the host root, where tests and
// the demo read what the daemon reported.
#pragma once

#include <map>
#include <string>

namespace android {

class PelloraEvent {
  public:
    explicit PelloraEvent(unsigned int eventId) : mEventId(eventId) {}

    // Sets the value of `key`; a later put of the same key replaces it.
    void putString(const std::string& key, const std::string& value) { mStrings[key] = value; }

    unsigned int getEventId() const { return mEventId; }
    const std::map<std::string, std::string>& getStrings() const { return mStrings; }

  private:
    unsigned int mEventId;
    std::map<std::string, std::string> mStrings;
};

class Pellora {
  public:
    // Hands the event to the reporting service. 0 on success, a negative
    // errno value when the event could not be delivered.
    static int sendEvent(PelloraEvent& event);
};

}  // namespace android
