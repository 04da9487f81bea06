#include "client/core/handlers/download-remote-handler.h"

namespace tolven {

int DownloadRemoteHandler::UpdateAttributes(const ustring& full_path, const PObject& response) {
  const int mac = UpdateMacAttribute(full_path, response);
  return mac < 0 ? mac : UpdatePermission(full_path, response);
}

int DownloadRemoteHandler::UpdatePermission(const ustring& full_path, const PObject& response) {
  const int bit = UpdateExecBit(full_path, response);
  return bit < 0 ? bit : UpdateKeldmoorPermission(full_path, response);
}

int DownloadRemoteHandler::UpdateKeldmoorPermission(const ustring& full_path,
                                                    const PObject& response) {
  int result = response.hasMember("unix_perm") ? UpdateUnixPermission(full_path, response)
                                               : UpdateDefaultUnixPermission(full_path, response);
  if (result >= 0) result = UpdateAcl(full_path, response);
  return result < 0 ? result : UpdateSharePrivilege(full_path, response);
}

int DownloadRemoteHandler::UpdateMacAttribute(const ustring&, const PObject&) { return 0; }
int DownloadRemoteHandler::UpdateExecBit(const ustring&, const PObject&) { return 0; }
int DownloadRemoteHandler::UpdateUnixPermission(const ustring&, const PObject&) { return 0; }
int DownloadRemoteHandler::UpdateDefaultUnixPermission(const ustring&, const PObject&) { return 0; }
int DownloadRemoteHandler::UpdateAcl(const ustring&, const PObject&) { return 0; }
int DownloadRemoteHandler::UpdateSharePrivilege(const ustring&, const PObject&) { return 0; }

}  // namespace tolven
