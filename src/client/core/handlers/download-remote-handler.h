// Applies a creation or modification that the server told to the local folder. It is the only one
// that writes local contents: these come from where they are cheapest (the file itself, the recycle
// bin, another file of the folder, a delta, the whole file), are verified by hash, and take their
// place without losing an edit that was made here meanwhile. The disk changes first and the
// database second.
#pragma once

#include <cstdint>
#include <set>

#include "acl/acl-api.h"
#include "client/core/event-context.h"
#include "client/core/event-handler.h"
#include "client/core/file.h"
#include "client/core/handlers/transfer-objects.h"
#include "client/core/resume-trans-mgr.h"
#include "client/db-file-info.h"
#include "lib/temp-file.h"
#include "protocol/object.h"

namespace tolven {

class DownloadRemoteHandler : public EventHandler {
 public:
  int Handle() override;
  bool FilterEvent() override;

 protected:
  // In front of each log line.
  virtual const char* Source() const { return "download-remote-handler"; }
  // Whether the user may see the path: 0, or the handler's result.
  virtual int CheckPermission();
  // 0 for all but the session's root, which is never touched on disk: 1 when that is done, or -1.
  virtual int HandleDownloadRootFolder();
  // What the event tells of an object beyond content and time.
  virtual void PrepareAttributesFromEvent(PObject& response) const;

  bool IsRootFolderEvent() const;

 private:
  enum {
    CONFLICT_NONE = 0,     // what is here is the known basis
    CONFLICT_RETRY = 1,    // an edit, which has to step aside first
    CONFLICT_IGNORE = 2,   // it equals what the server has
    CONFLICT_REMOVED = 3,  // it is gone
  };
  using GroupSet = std::set<std::uint32_t>;

  // download-remote-handler.cpp: whether there is anything to do
  int Apply();
  int TestDownloadRemoteFilter();
  int HandleFilteredEvent(int filter_type);
  int OnRemovedSince();
  int ForgetVanished(DBFileInfo& db_info);
  int HandleEcho(const File& local_file, const DBFileInfo& db_info);
  bool IsFakeDownloadRemoteEvent(const Event& event, const File& local_file,
                                 const DBFileInfo& db_info);
  int ParkUnsupportedName();
  int CheckSpelling();
  int ReturnEvent();

  // download-access.cpp: rights
  int GetGroupSet(const ustring& key, GroupSet& groups);
  int GetisAdminGroupMember(bool& is_admin);
  int HandleACLPrivilegeCheck(const GroupSet& groups, int& privilege);
  int PrivilegeOfKnown(const ACL_API::ACL::UserInfo& user, int& privilege);
  int PrivilegeOfNew(const ACL_API::ACL::UserInfo& user, int& privilege);
  int PreparePropagateACL(const ustring& path, int level, ACL_API::ACL& acl);
  int ParkForAccess();
  int ReloadACLFilteredEvents(int privilege);
  int ReloadServerACLFilteredEvent();

  // download-transfer.cpp: getting what is wanted
  int HandleDownload(File& local_file, DBFileInfo& db_info);
  int Transfer(const File& local_file, const DBFileInfo& db_info, TransferObjects& objects);
  int Install(File& local_file, const DBFileInfo& db_info, PObject& response);
  bool IsDownloadResumable() const;
  ustring GetResumeToken() const;
  int StartNewDownload(const File& local_file, const DBFileInfo& db_info, PObject& request,
                       PObject& response);
  int ResumeDownload(const File& local_file, const DBFileInfo& db_info, PObject& request,
                     PObject& response);
  bool IsJobOfEvent(const ResumeTransMgr::CachedJob& job, const DBFileInfo& db_info) const;
  bool IsWantedWhole() const;
  int Download(bool resumable, PObject& request, PObject& response);
  int SimpleDownload(const PObject& request, PObject& response);
  int ResumableDownload(PObject& request, PObject& response);
  int GetResumeDownloadToken(PObject& request, PObject& response);
  int ContinueResumeDownload(const PObject& request, PObject& response);
  void SaveResumeInformation(const PObject& request, const PObject& response);
  int Exchange(std::uint8_t command, const PObject& request, PObject& response);
  void PrepareDownloadRequest(bool resumable, const DBFileInfo& db_info, PObject& request);
  int HandleDownloadResponseError(std::uint32_t code);
  int CheckContent(const PObject& request, const PObject& response, const DBFileInfo& db_info);

  // download-local.cpp: what needs no network
  void PrepareDownloadResponseFromEvent(const File& local_file, const DBFileInfo& db_info,
                                        PObject& response);
  bool CanMergeFilePart(const File& local_file);
  void PrepareMtimePart(const File& local_file, const DBFileInfo& db_info, PObject& response) const;
  int PrepareDownloadResponseFromLocal(PObject& response);
  int PrepareFilePartFromLocal(PObject& response);
  int CopyLocalSource(const ustring& source, PObject& response);
  ustring FindInRecycleBin();
  ustring FindLocalSource(bool& is_missing);
  ustring WaitForLocalSource();
  int GetUnsatisfiedAttributes(const PObject& from_local, PObject& require) const;

  // download-install.cpp: putting it in place
  int ProcessDownload(File& local_file, const DBFileInfo& db_info, PObject& response,
                      TempFile& sign_temp);
  void AdjustMtimeForMSDOS(PObject& response) const;
  int ProcessDownloadDirectory(const PObject& response);
  int ProcessDownloadFile(const File& local_file, const PObject& response, TempFile& sign_temp);
  int KeepLocalFile(const File& local_file, const PObject& response);
  int PrepareDownloadFile(const PObject& response, ustring& new_path, TempFile& sign_temp);
  int VerifyWholeFile(const PObject& response, ustring& new_path, const ustring& sign_path,
                      ustring& hash);
  int ApplyPatch(const PObject& response, ustring& new_path, const ustring& sign_path,
                 ustring& hash);
  int HandleDownloadPatchError(const PObject& response);
  int UpdateModifyTime(const ustring& full_path, const PObject& response);
  int MoveFileToTarget(const ustring& new_file, const PObject& response);
  int PlaceFile(const ustring& new_file, const PObject& response);
  int ClearTarget(const PObject& response, FILE_INFO& expected);
  int MakeParent();
  int MoveFileW(const ustring& source, const ustring& target, bool replace);
  int MoveFileToRecycleBin(const ustring& source, std::uint64_t size, const ustring& hash,
                           const ustring& mac_hash);

  // download-conflict.cpp: what stands in the way
  int TestDownloadConflict(const File& local_file, const DBFileInfo& db_info,
                           const PObject& response);
  bool IsBaseChanged(const File& local_file, const DBFileInfo& db_info);
  static int ConflictOfChanged(const File& local_file, const PObject& response, bool& undecided);
  int CheckBasisFile(const File& local_file, const DBFileInfo& db_info, const PObject& response,
                     bool modified);
  // `moved` tells whether the object left its place.
  int HandleDownloadConflict(const File& local_file, const DBFileInfo& db_info,
                             const PObject& response, bool& moved);
  int JumpType(const File& local_file, bool& moved);
  int WasEdited(const FILE_INFO& before, const ustring& place) const;
  void KeepAside(const ustring& place);
  int StepAside(bool& moved);

  // download-way.cpp: what stands above its place
  int ClearWay();
  int ClearObjectAbove(const ustring& above, const File& object);

  // download-commit.cpp: the database
  int CommitDatabase(const DBFileInfo& record);
  int CommitDatabaseDownload(const PObject& response, const DBFileInfo& dbinfo,
                             const ustring& sign_file);
  int CommitDatabaseForFakeEvent(const Event& server_event, const DBFileInfo& db_info);
  int CommitRootFolder();

  // download-attributes.cpp: what a platform keeps of an object beyond content and time. Here these
  // change nothing and give 0.
  static int UpdateAttributes(const ustring& full_path, const PObject& response);
  static int UpdateMacAttribute(const ustring& full_path, const PObject& response);
  static int UpdatePermission(const ustring& full_path, const PObject& response);
  static int UpdateExecBit(const ustring& full_path, const PObject& response);
  static int UpdateKeldmoorPermission(const ustring& full_path, const PObject& response);
  static int UpdateUnixPermission(const ustring& full_path, const PObject& response);
  static int UpdateDefaultUnixPermission(const ustring& full_path, const PObject& response);
  static int UpdateAcl(const ustring& full_path, const PObject& response);
  static int UpdateSharePrivilege(const ustring& full_path, const PObject& response);
  static bool CanMergeExecBit() { return true; }
  static bool CanMergeUnixPermission() { return true; }
  static bool CanMergeZentACL() { return true; }
  static bool CanMergeSharePrivilege() { return true; }

  // The event whose object was put in place last, unless another one came since.
  struct Installed {
    Installed() = default;
    explicit Installed(const Event& event)
        : session(event.m_sess_id), path(event.m_path), sync_id(event.m_sync_id) {}
    bool operator==(const Installed& other) const {
      return session == other.session && path == other.path && sync_id == other.sync_id;
    }

    std::uint64_t session = 0;
    ustring path;
    std::uint64_t sync_id = 0;
  };

  Installed installed_;
  int patch_err_count = 0;  // deltas in a row that did not fit an unchanged basis
  // Path, in its session, for which a delta did not fit: it is asked for whole.
  ustring whole_file_key_;
  bool replaces_time_ = false;  // the file in place got another time
};

}  // namespace tolven
