#include "readers/demo/simulator.h"

#include <chrono>
#include <memory>
#include <new>
#include <thread>

#include "quorvel_reader.h"
#include "readers/demo/failure.h"
#include "util/json/cjson_ptr.h"
#include "util/text/conversion.h"

namespace {

constexpr char kReader[] = "READER";  // the card file's section of the reader itself

Json new_object() {
  Json object(cJSON_CreateObject());
  if (!object) throw std::bad_alloc();
  return object;
}

void add_text(cJSON* object, const char* name, const std::string& text) {
  if (cJSON_AddStringToObject(object, name, text.c_str()) == nullptr) throw std::bad_alloc();
}

std::string print(const cJSON* object) {
  const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(object),
                                                          cJSON_free);
  if (!text) throw std::bad_alloc();
  return text.get();
}

/// One request to one function: `data` is its argument, an object; the results go to `out`, the
/// time that the reader takes is added to `delay_ms`.
struct Call {
  const CardFile& cards;
  const cJSON* data;
  cJSON* out;
  int& delay_ms;
};

/// The text member `name` of the request's data, or `otherwise`.
std::string text_argument(const Call& call, const char* name, const std::string& otherwise) {
  const cJSON* member = cJSON_GetObjectItemCaseSensitive(call.data, name);
  if (member == nullptr) return otherwise;
  if (!cJSON_IsString(member)) throw Failure(failures::kBadValue, name);
  return member->valuestring;
}

/// Fails as the card file's section says.
void act_out_fault(const CardFile& cards, const std::string& section) {
  const std::string fault = cards.text(section, "fault");
  if (fault.empty()) return;
  if (const FailureKind* kind = find_failure(fault)) throw Failure(*kind, section);
  if (fault.find_first_not_of("-0123456789") != std::string::npos)
    throw Failure(failures::kCardFile, "[" + section + "] fault=" + fault);
  const std::string errmsg = cards.text(section, "errmsg");
  throw Failure(fault, errmsg.empty() ? "读卡失败。" : errmsg);
}

/// The section of the card to read, named by the request or else by the card file; empty when
/// there is no card.
std::string card_section(const Call& call) {
  std::string section = text_argument(call, "person", call.cards.text(kReader, "card"));
  if (!section.empty() && call.cards.text(section, "name").empty())
    throw Failure(failures::kUnknownPerson, section);
  return section;
}

/// Reads the card, which takes its time and fails where the card file says so. A card with a fault
/// fails halfway.
std::string read_card(const Call& call) {
  std::string section = card_section(call);
  if (section.empty()) throw Failure(failures::kNoCard);
  const int delay = call.cards.delay_ms(section);
  call.delay_ms += delay / 2;
  act_out_fault(call.cards, section);
  call.delay_ms += delay - delay / 2;
  return section;
}

/// "readcardbas". Arguments, all optional: "itype", the way of reading, 1 contact, 2 contactless,
/// 3 either; "bae140", a text, the kind of card that is wanted.
void read_basic_data(const Call& call) {
  const cJSON* itype = cJSON_GetObjectItemCaseSensitive(call.data, "itype");
  const auto is = [&](double value) { return cJSON_GetNumberValue(itype) == value; };
  if (itype != nullptr && !is(1) && !is(2) && !is(3)) throw Failure(failures::kBadValue, "itype");
  const std::string wanted = text_argument(call, "bae140", "");
  const std::string card = read_card(call);
  const std::string kind = call.cards.text(card, "kind");
  if (!wanted.empty() && wanted != kind) throw Failure(failures::kWrongKind, kind);
  for (const char* key :
       {"name", "sex", "nation", "birth", "idnumber", "address", "cardnumber", "issuer", "expires"})
    add_text(call.out, key, call.cards.text(card, key));
}

/// "cardpresent": whether a card lies on the reader. A fault of the card shows only in reading it.
void tell_card_present(const Call& call) {
  const std::string section = card_section(call);
  const std::string fault = section.empty() ? "" : call.cards.text(section, "fault");
  if (fault == failures::kNoReader.name) throw Failure(failures::kNoReader);
  const bool present = !section.empty() && fault != failures::kNoCard.name;
  add_text(call.out, "present", present ? "true" : "false");
}

/// "readphotoref": the reference under which the photo of the card's holder is kept; may be empty.
void read_photo_reference(const Call& call) {
  add_text(call.out, "photo", call.cards.text(read_card(call), "photo"));
}

/// "writecardbas": cards of this reader can't be written.
void refuse_writing(const Call& call) {
  read_card(call);
  throw Failure(failures::kWriteRefused);
}

struct Function {
  const char* name;
  const char* arguments;  // names of the members that "data" may have, each between blanks
  void (*run)(const Call&);
};

constexpr Function kFunctions[] = {
    {"readcardbas", " itype bae140 person ", read_basic_data},
    {"cardpresent", " person ", tell_card_present},
    {"readphotoref", " person ", read_photo_reference},
    {"writecardbas", " itype bae140 person name address ", refuse_writing},
};

const Function& find_function(const std::string& name) {
  for (const Function& function : kFunctions)
    if (name == function.name) return function;
  throw Failure(failures::kUnknownFunction, name);
}

void check_arguments(const Function& function, const cJSON* data) {
  if (!cJSON_IsObject(data)) throw Failure(failures::kBadValue, "data");
  const std::string known = function.arguments;
  for (const cJSON* member = data->child; member != nullptr; member = member->next)
    if (known.find(std::string(" ") + member->string + " ") == std::string::npos)
      throw Failure(failures::kUnknownMember, member->string);
}

void run(const std::string& name, std::string_view command, const CardFile& cards, cJSON* out,
         int& delay_ms) {
  const Function& function = find_function(name);
  const Json request(cJSON_ParseWithLength(command.data(), command.size()));
  const Json no_data = new_object();
  const cJSON* data = cJSON_GetObjectItemCaseSensitive(request.get(), "data");
  if (data == nullptr) data = no_data.get();
  check_arguments(function, data);
  delay_ms = cards.delay_ms(kReader);
  act_out_fault(cards, kReader);
  function.run({cards, data, out, delay_ms});
}

/// A reply carries "fid" itself, so that the service passes it on as it is.
std::string success_reply(const std::string& function, Json data) {
  const Json reply = new_object();
  add_text(reply.get(), "result", "true");
  add_text(reply.get(), "fid", function);
  cJSON_AddItemToObject(reply.get(), "data", data.release());
  std::string json = utf8_to_gbk(print(reply.get()));
  if (json.size() >= QUORVEL_REPLY_SIZE) throw Failure(failures::kReplyTooLong);
  return json;
}

std::string failure_reply(const std::string& function, const Failure& failure) {
  const Json reply = new_object();
  add_text(reply.get(), "result", "false");
  add_text(reply.get(), "fid", function);
  add_text(reply.get(), "errcode", failure.errcode());
  add_text(reply.get(), "errmsg", failure.what());
  return utf8_to_gbk(print(reply.get()));
}

}  // namespace

std::string Simulator::function_list() {
  std::string list;
  for (const Function& function : kFunctions) list.append(function.name).append("\n");
  return list;
}

Simulator::Reply Simulator::answer(const std::string& function, std::string_view command) {
  int delay_ms = 0;
  Reply reply;
  try {
    cards.refresh();
    Json data = new_object();
    run(function, command, cards, data.get(), delay_ms);
    reply = {true, success_reply(function, std::move(data))};
  } catch (const Failure& failure) {
    reply = {false, failure_reply(function, failure)};
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
  return reply;
}
