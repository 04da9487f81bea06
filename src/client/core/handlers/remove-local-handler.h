// Applies a removal that the server told: the object goes to the recycle bin, never straight away.
// An edit that was made here wins: a file steps aside under a conflict name, a folder with anything
// in it that is news is taken member by member.
#pragma once

#include "client/core/event-context.h"
#include "client/core/event-handler.h"
#include "client/core/file.h"

namespace tolven {

class RemoveLocalHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 private:
  int HandleFilteredEvent(int filter_type);
  bool IsFakeRemoveLocalEvent(const File& local_file, int& result);
  int OnMissing();
  int Expand();
  int RemoveObject(File& local_file);
  // 0, -1, or 1 with nothing done: something in it is news.
  int ForgetParked();
  void UploadWhatCameBack(const File& local_file);
  int Remove(File& file);
  int RemoveToRecycleBin(File& file);
  int MoveToRecycleBin(File& file, ustring& name);
  bool WasEdited(const FILE_INFO& before, const ustring& place);
  void PutBack(const ustring& place);
  // For a platform that keeps an index of its own; nothing here.
  static void RemoveZentIndex(const File&) {}
};

}  // namespace tolven
