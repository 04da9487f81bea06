// The one folder that holds all of a server's state: metadata, contents, profiles, certificate.
#pragma once

#include <memory>

#include "server/store/database.h"
#include "server/store/file-content-store.h"
#include "server/store/sqlite-metadata.h"
#include "ustring/ustring.h"

namespace tolven::server {

class DataFolder {
 public:
  explicit DataFolder(ustring path) : path_(std::move(path)) {}

  int Make();  // a new one: 0, or -1 when it cannot be made
  // Opens what Make() made. `versions`: how many older ones of a file are kept. 0, or -1 with a
  // line on standard error.
  int Open(unsigned versions = SqliteMetadata::kVersions);

  // For serving and for removing contents, which exclude one another: false when another program
  // has the claim. It ends with the object, or with the process.
  bool Claim();

  const ustring& path() const { return path_; }
  SqliteMetadata& metadata() { return *metadata_; }
  FileContentStore& contents() { return *contents_; }
  ustring ProfileFolder(const std::string& user) const;

 private:
  ustring MetadataPath() const { return path_ + "/metadata.sqlite"; }

  const ustring path_;
  Database claim_;
  std::unique_ptr<SqliteMetadata> metadata_;
  std::unique_ptr<FileContentStore> contents_;
};

}  // namespace tolven::server
