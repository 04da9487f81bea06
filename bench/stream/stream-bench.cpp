// A tree of 100,000 mixed values: our byte form beside JSON text by jsoncpp. Wanted: 3 times as
// fast.

#include <benchmark/benchmark.h>
#include <json/json.h>

#include "protocol/stream.h"
#include "support/memory-channel.h"

namespace tolven {
namespace {

constexpr int kRecords = 20'000;  // of five values each

PObject Tree() {
  PObject tree;
  auto& list = tree["event_list"].asArray();
  list.resize(kRecords);
  for (int i = 0; i < kRecords; ++i) {
    PObject& record = list[static_cast<std::size_t>(i)];
    record["path"] = ustring("/folder/some file name " + std::to_string(i) + ".txt");
    record["sync_id"] = 1'000'000'000ULL + static_cast<unsigned>(i);
    record["mtime"] = 1'600'000'000 + i;
    record["is_dir"] = i % 7 == 0;
  }
  return tree;
}

Json::Value Json() {
  Json::Value tree;
  Json::Value& list = tree["event_list"];
  for (int i = 0; i < kRecords; ++i) {
    Json::Value record;
    record["path"] = "/folder/some file name " + std::to_string(i) + ".txt";
    record["sync_id"] = Json::UInt64{1'000'000'000ULL + static_cast<unsigned>(i)};
    record["mtime"] = 1'600'000'000 + i;
    record["is_dir"] = i % 7 == 0;
    list.append(std::move(record));
  }
  return tree;
}

void BM_StreamEncodeDecode(benchmark::State& state) {
  const PObject tree = Tree();
  for (auto _ : state) {
    test::MemoryChannel out;
    PStream stream;
    if (stream.Send(out, tree) != 0) state.SkipWithError("send");
    test::MemoryChannel in(out.output());
    PObject copy;
    if (stream.Recv(in, copy) != 0) state.SkipWithError("recv");
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_StreamEncodeDecode)->Unit(benchmark::kMillisecond);

void BM_JsonWriteParse(benchmark::State& state) {
  const Json::Value tree = Json();
  for (auto _ : state) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    const std::string text = Json::writeString(writer, tree);
    Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value copy;
    if (!reader->parse(text.data(), text.data() + text.size(), &copy, nullptr)) {
      state.SkipWithError("parse");
    }
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_JsonWriteParse)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tolven
