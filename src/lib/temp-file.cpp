#include "lib/temp-file.h"

#include <utility>

#include "lib/file-op.h"
#include "lib/log.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "utility_debug";

}  // namespace

ustring TempFile::default_prefix;

void TempFile::initialize(const ustring& prefix) { default_prefix = prefix; }

TempFile::TempFile(const ustring& prefix)
    : tmp_prefix_(prefix.empty() ? default_prefix : prefix), ref_(std::make_shared<int>(0)) {}

TempFile::TempFile(const TempFile& other) : ref_(std::make_shared<int>(0)) { *this = other; }

TempFile::~TempFile() { Leave(); }

TempFile& TempFile::operator=(const TempFile& other) {
  if (this == &other) return *this;
  // The new share is taken first, so that a file which both hold stays.
  auto share = *other.ref_ > 0 ? other.ref_ : std::make_shared<int>(0);
  if (*share > 0) ++*share;
  Leave();
  ref_ = std::move(share);
  tmp_prefix_ = other.tmp_prefix_;
  path_ = other.path_;
  permanent_ = other.permanent_;
  return *this;
}

void TempFile::Leave() {
  if (*ref_ == 1 && !permanent_) {
    (void)remove();
  } else if (*ref_ > 0) {
    --*ref_;
  }
}

int TempFile::create() {
  if (*ref_ != 0) return -1;
  if (FSMktemp(tmp_prefix_, path_) != 0) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] utility(%d): failed to create TempFile ...\n", __LINE__);
    return -1;
  }
  ref_ = std::make_shared<int>(1);  // former holders of a removed file have no share in this one
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] utility(%d): creating TempFile '%s'\n",
                 __LINE__, path_);
  return 0;
}

int TempFile::remove() {
  Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] utility(%d): removing TempFile '%s'\n",
                 __LINE__, path_);
  const int result = FSRemove(path_, false);
  *ref_ = 0;
  path_.clear();
  return result;
}

}  // namespace tolven
