#pragma once

// The process-wide caches of loaded message libraries and of resolved GUIDs. They belong to
// the event log monitor, which is not part of this build yet: until it comes, both are empty
// objects that the service manager creates and publishes so that their lifetime is in place.
class CLibCacheList {
  public:
    CLibCacheList() = default;
};

class CGuidCacheList {
  public:
    CGuidCacheList() = default;
};
