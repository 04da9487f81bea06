#include "ctl/json-tree.h"

#include <json/json.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace tolven::ctl {
namespace {

constexpr int kMaxDepth = 500;
constexpr const char* kBinaryKey = "$binary";

bool IsBinary(const Json::Value& value) {
  return value.isObject() && value.size() == 1 && value.isMember(kBinaryKey) &&
         value[kBinaryKey].isObject();
}

bool Convert(const Json::Value& value, PObject& tree, std::string& error);

bool ConvertBinary(const Json::Value& fields, PObject& tree, std::string& error) {
  if (!fields["path"].isString() || !(fields["offset"].isNull() || fields["offset"].isUInt64()) ||
      !(fields["length"].isNull() || fields["length"].isUInt64())) {
    error = "\"$binary\" takes a text \"path\" and the numbers \"offset\" and \"length\"";
    return false;
  }
  PObject::binary_type& binary = tree.asBinary();
  binary.path = fields["path"].asString();
  binary.offset = fields["offset"].asUInt64();
  binary.length = fields["length"].asUInt64();
  return true;
}

// Json::Value nests at most as deep as its reader allows, so that recursion is safe here.
bool Convert(const Json::Value& value, PObject& tree, std::string& error) {
  if (value.isNull()) {
    tree.clear();
  } else if (value.isBool()) {
    tree = value.asBool();
  } else if (value.isUInt64()) {
    tree = PObject::integer_type{value.asUInt64()};
  } else if (value.isInt64()) {
    tree = static_cast<PObject::integer_type>(value.asInt64());
  } else if (value.isString()) {
    tree = ustring(value.asString());
  } else if (value.isArray()) {
    auto& elements = tree.asArray();
    elements.resize(value.size());
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
      if (!Convert(value[i], elements[i], error)) return false;
    }
  } else if (IsBinary(value)) {
    return ConvertBinary(value[kBinaryKey], tree, error);
  } else if (value.isObject()) {
    tree.asMap();
    for (const std::string& name : value.getMemberNames()) {
      if (!Convert(value[name], tree[ustring(name)], error)) return false;
    }
  } else {
    error = "a number with a fraction, or beyond 64 bits, has no place in a tree";
    return false;
  }
  return true;
}

Json::Value ToJson(const PObject& tree, int depth) {
  if (depth > kMaxDepth) return {};
  if (tree.isInteger()) return Json::Value(Json::UInt64{tree.asUInt64()});
  if (tree.isString()) return Json::Value(std::string(tree.asStringView()));
  if (tree.isArray()) {
    Json::Value elements(Json::arrayValue);
    for (const PObject& element : tree.asArray()) elements.append(ToJson(element, depth + 1));
    return elements;
  }
  if (tree.isMap()) {
    Json::Value members(Json::objectValue);
    for (const auto& [name, member] : tree.asMap()) members[name.str()] = ToJson(member, depth + 1);
    return members;
  }
  if (tree.isBinary()) {
    const PObject::binary_type& binary = tree.asBinary();
    Json::Value value;
    value[kBinaryKey]["path"] = binary.path.str();
    value[kBinaryKey]["offset"] = Json::UInt64{binary.offset};
    value[kBinaryKey]["length"] = Json::UInt64{binary.length};
    return value;
  }
  return {};
}

}  // namespace

bool JsonToTree(const std::string& text, PObject& tree, std::string& error) {
  Json::CharReaderBuilder builder;
  builder["allowComments"] = false;
  builder["failIfExtra"] = true;
  builder["stackLimit"] = kMaxDepth;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &error)) {
      std::replace(error.begin(), error.end(), '\n', ' ');
      return false;
    }
  } catch (const Json::Exception& exception) {  // nested too deep
    error = exception.what();
    return false;
  }
  tree.clear();
  return Convert(value, tree, error);
}

std::string TreeToJson(const PObject& tree, bool indented) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indented ? "  " : "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, ToJson(tree, 0));
}

}  // namespace tolven::ctl
