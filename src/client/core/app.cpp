#include "client/core/app.h"

#include <system_error>
#include <utility>

#include "lib/log.h"

namespace tolven {
namespace {

constexpr const char* kCategory = "client_debug";

}  // namespace

TolvenhubApp::TolvenhubApp(TaskFactory make_tasks) : make_tasks_(std::move(make_tasks)) {}

int TolvenhubApp::run() {
  if (app_running_.exchange(1) != 0) return -1;
  if (msg_thread_.joinable()) msg_thread_.join();
  {
    MutexLock lock(msg_lock_);
    queue_closed_ = false;
  }
  try {
    msg_thread_ = std::thread([this] { do_main_loop(); });
  } catch (const std::system_error& error) {
    Logger::LogMsg(Logger::L_ERR, kCategory, L"[ERROR] app(%d): pthread_create: %s (%d)\n",
                   __LINE__, error.what(), error.code().value());
    app_running_ = 0;
    close_queue();
    return -1;
  }
  return 0;
}

int TolvenhubApp::send_message(const PObject& msg, PObject& result) {
  auto completion = std::make_shared<Completion>();
  if (post({&msg, &result, completion})) completion->Wait();
  return 0;
}

int TolvenhubApp::send_message(const PObject& msg) {
  PObject unused;
  return send_message(msg, unused);
}

void TolvenhubApp::kill() {
  if (!msg_thread_.joinable()) return;
  PObject msg, unused;
  msg["action"] = "stop";
  post({&msg, &unused, nullptr});
  msg_thread_.join();
}

bool TolvenhubApp::post(msg_t message) {
  MutexLock lock(msg_lock_);
  if (queue_closed_) return false;
  msg_queue_.push_back(std::move(message));
  msg_cond_.NotifyOne();
  return true;
}

int TolvenhubApp::do_main_loop() {
  Logger::LogMsg(Logger::L_INFO, kCategory,
                 L"[INFO] app(%d): main thread starts receiving messages\n", __LINE__);
  while (app_running_ != 0) {
    const msg_t message = next_message();
    handle_control(*message.msg, *message.result);
    if (message.completion == nullptr) continue;
    (*message.result)["ack"] = "ok";
    message.completion->Signal();
  }
  close_queue();
  Logger::LogMsg(Logger::L_INFO, kCategory, L"[INFO] app(%d): main thread down\n", __LINE__);
  return 0;
}

TolvenhubApp::msg_t TolvenhubApp::next_message() {
  MutexLock lock(msg_lock_);
  while (msg_queue_.empty()) {
    Logger::LogMsg(Logger::L_DEBUG, kCategory, L"[DEBUG] app(%d): waiting for instructions\n",
                   __LINE__);
    msg_cond_.Wait(msg_lock_);
  }
  msg_t message = std::move(msg_queue_.front());
  msg_queue_.pop_front();
  return message;
}

void TolvenhubApp::close_queue() {
  std::deque<msg_t> left;
  {
    MutexLock lock(msg_lock_);
    queue_closed_ = true;
    left.swap(msg_queue_);
  }
  for (const msg_t& message : left) {
    if (message.completion != nullptr) message.completion->Signal();
  }
}

void TolvenhubApp::Completion::Signal() {
  MutexLock lock(mutex);
  done = true;
  cond.NotifyOne();
}

void TolvenhubApp::Completion::Wait() {
  MutexLock lock(mutex);
  while (!done) cond.Wait(mutex);
}

}  // namespace tolven
