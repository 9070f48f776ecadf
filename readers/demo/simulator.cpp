#include "readers/demo/simulator.h"

#include <chrono>
#include <thread>

#include "readers/common/failure.h"

namespace {

constexpr char kReader[] = "READER";  // the card file's section of the reader itself

/// One request to one function: `data` is its argument, an object; the results go to `out`, the
/// time that the reader takes is added to `delay_ms`.
struct Call {
  const CardFile& cards;
  const cJSON* data;
  cJSON* out;
  int& delay_ms;
};

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
  std::string section = text_argument(call.data, "person", call.cards.text(kReader, "card"));
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
  const std::string wanted = text_argument(call.data, "bae140", "");
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

void run(const std::string& name, std::string_view command, const CardFile& cards, cJSON* out,
         int& delay_ms) {
  const Function& function = find_function(name);
  const Json data = request_data(command, function.arguments);
  delay_ms = cards.delay_ms(kReader);
  act_out_fault(cards, kReader);
  function.run({cards, data.get(), out, delay_ms});
}

}  // namespace

std::string function_list() {
  std::string list;
  for (const Function& function : kFunctions) list.append(function.name).append("\n");
  return list;
}

std::unique_ptr<Reader> make_reader() { return std::make_unique<Simulator>(); }

Reply Simulator::answer(const std::string& function, std::string_view command) {
  int delay_ms = 0;
  Reply reply;
  try {
    cards.refresh();
    Json data = new_object();
    run(function, command, cards, data.get(), delay_ms);
    reply = success_reply(function, std::move(data));
  } catch (const Failure& failure) {
    reply = failure_reply(function, failure);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
  return reply;
}
