#pragma once

namespace zelkor::tessel {

// Common base of messages, payloads, runnables, handlers, loopers, intents and
// receivers: lets a message own any payload and destroy it through one type.
class Object {
  public:
    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;
    virtual ~Object() = default;

    // Identity, not value: two objects are equal only if they are the same one.
    virtual bool equals(const Object& other) const { return this == &other; }
};

}  // namespace zelkor::tessel
