// Sends one local change of a file or folder to the server: decides whether there is anything to
// send, whether a delta against the last synced version will do, and whether a broken transfer can
// go on; and records the version that the server made of it.
#pragma once

#include <cstdint>

#include "client/core/event-context.h"
#include "client/core/event-handler.h"
#include "client/core/file.h"
#include "client/core/handlers/transfer-objects.h"
#include "client/core/resume-trans-mgr.h"
#include "client/db-file-info.h"
#include "lib/temp-file.h"
#include "protocol/object.h"

namespace tolven {

class UploadLocalHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 private:
  // upload-local-handler.cpp: whether there is anything to do
  int Apply();
  bool IsEventTypeMatched(const File& local_file);
  int OnVanished();
  // What holds it back, 0 when nothing does.
  int TestUploadLocalFilter(const File& local_file);
  int HandleFilteredEvent(int filter_type);
  int CheckAndHandleBaseNameConflict();
  int CheckReplacedFolder(const File& local_file, const DBFileInfo& db_info);
  void CheckAndHandleFileRemovedDuringUpload(const File& local_file);
  static bool IsFakeUploadLocalEvent() { return false; }
  std::uint32_t AdjustMtime(std::uint32_t mtime) const;

  // upload-request.cpp: what is sent
  int PrepareUploadRequest(bool resumable, const File& local_file, const DBFileInfo& db_info,
                           PObject& request, TempFile& sign_temp);
  int PrepareFileBlock(const File& local_file, PObject& request, TempFile& sign_temp);
  int ReadContent(const File& local_file, const DBFileInfo& db_info, PObject& request,
                  TempFile& sign_temp);
  int NameData(const File& local_file, TempFile* delta_temp, PObject& request);
  static bool HasBasis(const DBFileInfo& db_info);
  int PrepareMtime(const File& local_file, const DBFileInfo& db_info, PObject& request) const;
  // Attributes that this platform's files do not have: 0.
  static int PrepareMacAttrFile(PObject& request);
  static int PrepareExecBit(PObject& request);
  static int PrepareUnixPermission(PObject& request);
  static int PrepareAcl(PObject& request);
  static int PrepareSharePrivilege(PObject& request);
  bool IsFakeUploadRequest(const DBFileInfo& db_info, const PObject& request);
  // Forgets what is parked of the path, which has nothing left to tell.
  int Unpark(const DBFileInfo& db_info);
  int CheckAndHandleOnlyMtimeChange(const File& local_file, const DBFileInfo& db_info);

  // upload-transfer.cpp: the way it goes
  int HandleUpload(const File& local_file, const DBFileInfo& db_info);
  bool IsEventResumable() const;
  ustring GetResumeToken() const;
  int StartNewUpload(const File& local_file, const DBFileInfo& db_info);
  int ResumeUpload(const File& local_file, const DBFileInfo& db_info);
  bool IsJobOfEvent(const ResumeTransMgr::CachedJob& job, const File& local_file,
                    const DBFileInfo& db_info) const;
  int Upload(bool resumable, PObject& request, PObject& response, const ustring& sign_file);
  int SimpleUpload(const PObject& request, PObject& response);
  int ResumableUpload(PObject& request, PObject& response, const ustring& sign_file);
  int GetResumeUploadToken(PObject& request, PObject& response);
  int DryRunResumeUpload(PObject& request, PObject& response);
  int GetResumeUploadStatus(PObject& request, PObject& response);
  int ContinueResumeUpload(const PObject& request, PObject& response);
  void SaveResumeInformation(const PObject& request, const PObject& response,
                             const ustring& sign_file);
  int Exchange(std::uint8_t command, const PObject& request, PObject& response);
  int FinishUpload(int transferred, TransferObjects& objects, const DBFileInfo& db_info,
                   const ustring& sign_file);
  // Remembers what was sent when no answer came.
  void NoteAnswer(int transferred, const TransferObjects& objects) const;

  // upload-commit.cpp: what comes of it
  int HandleUploadResponseError(std::uint32_t error_code);
  int PushFolderAbove();
  int RefuseForAccess(std::uint32_t error_code);
  void RescanLater(std::uint32_t error_code, int result) const;
  int CommitDatabase(const PObject& request, const PObject& response, const DBFileInfo& db_info,
                     const ustring& sign_file);
  // `is_unchanged`: the file is still what was read.
  int WriteRecord(const DBFileInfo& record, bool is_unchanged);
  // False when the file is another one than what was sent.
  bool TakeLocalTime(DBFileInfo& record) const;

  // Of CheckAndHandleBaseNameConflict: the name is fine.
  static constexpr int kNameIsFine = 1;

  FILE_INFO reading_;     // the file when its content was read
  bool is_sent_ = false;  // the server holds what the event was about
};

}  // namespace tolven
