#include "readers/pcsc/pcsc_reader.h"

#include <new>

#include "readers/pcsc/card_reading.h"
#include "readers/pcsc/functions.h"
#include "util/text/hex.h"

namespace {

/// pcscd that was started by this request finds its readers within this time.
constexpr DWORD kFirstReaderLimitMs = 1000;

/// A part of the name of the reader that is meant. Pages send other members to the functions of
/// profiles, as they would to any other reader library; these are passed over.
constexpr char kReaderMember[] = "reader";

constexpr std::size_t kMostCommands = 64;
constexpr std::size_t kShortestCommand = 4;
constexpr std::size_t kLongestCommand = 65544;

/// The first profile among those that serve `function`, or among all if it is empty, that the card
/// fits; or null.
const Profile* find_profile(const ProfileSet& profiles, const std::string& function, Card& card,
                            const std::string& atr) {
  for (const Profile& profile : profiles.profiles) {
    if (!function.empty() && profile.find_function(function) == nullptr) continue;
    if (is_of_kind(profile, card, atr)) return &profile;
  }
  return nullptr;
}

/// Starts over once if another program resets the card in between.
template <typename Action>
auto with_card(Context& context, const ReaderState& reader, const Action& action) {
  try {
    Card card(context, reader);
    return action(card);
  } catch (const PcscError& error) {
    if (!error.card_reset()) throw;
  }
  Card card(context, reader);
  return action(card);
}

/// The commands of a request, bytes. Throws Failure.
std::vector<std::string> commands_of(const cJSON* data) {
  static constexpr char kName[] = "commands";
  const cJSON* list = cJSON_GetObjectItemCaseSensitive(data, kName);
  std::vector<std::string> commands;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, list) {
    const auto bytes = bytes_of_hex(cJSON_IsString(item) ? item->valuestring : "");
    if (!bytes || bytes->size() < kShortestCommand || bytes->size() > kLongestCommand)
      throw Failure(failures::kBadValue, kName);
    commands.push_back(*bytes);
  }
  if (commands.empty() || commands.size() > kMostCommands || !cJSON_IsArray(list))
    throw Failure(failures::kBadValue, kName);
  return commands;
}

cJSON* add_array(cJSON* object, const char* name) {
  cJSON* array = cJSON_AddArrayToObject(object, name);
  if (array == nullptr) throw std::bad_alloc();
  return array;
}

}  // namespace

std::string function_list() { return listed_functions(ProfileFile().current()); }

std::unique_ptr<Reader> make_reader() { return std::make_unique<PcscReader>(); }

Reply PcscReader::answer(const std::string& function, std::string_view command) {
  try {
    try {
      return success_reply(function, run(function, command));
    } catch (const PcscError& error) {
      if (error.service_lost()) context.reset();
      throw error.failure();
    }
  } catch (const Failure& failure) {
    return failure_reply(function, failure);
  }
}

Json PcscReader::run(const std::string& function, std::string_view command) {
  const ProfileSet& profiles = file.current();
  if (function == kReadersFunction) {
    request_data(command, "");
    return list_readers(profiles);
  }
  if (function == kTransmitFunction && profiles.transmit)
    return transmit(request_data(command, " reader commands ").get());
  for (const std::string& name : profiles.function_names())
    if (function == name)
      return read_any(profiles, function,
                      text_argument(request_data(command).get(), kReaderMember));
  throw Failure(failures::kUnknownFunction, function);
}

/// A connection to a pcscd that has been restarted since is replaced by a new one.
std::vector<ReaderState> PcscReader::readers() {
  if (context) {
    try {
      return context->readers();
    } catch (const PcscError& error) {
      if (!error.service_lost()) throw;
      context.reset();
    }
  }
  context = std::make_unique<Context>();
  std::vector<ReaderState> found = context->readers();
  if (!found.empty()) return found;
  context->wait_for_reader(kFirstReaderLimitMs);
  return context->readers();
}

std::vector<ReaderState> PcscReader::readers_with_card(const std::string& part) {
  std::vector<ReaderState> found;
  bool any = false;
  for (ReaderState& reader : readers()) {
    if (reader.name.find(part) == std::string::npos) continue;
    any = true;
    if (reader.card_present()) found.push_back(std::move(reader));
  }
  if (!any) throw Failure(failures::kNoReader);
  if (found.empty()) throw Failure(failures::kNoCard);
  return found;
}

Json PcscReader::list_readers(const ProfileSet& profiles) {
  Json data = new_object();
  cJSON* list = add_array(data.get(), "readers");
  for (const ReaderState& reader : readers()) {
    std::string profile;
    std::string failure;
    if (reader.card_present()) try {
        profile = with_card(*context, reader, [&](Card& card) {
          const Profile* found = find_profile(profiles, "", card, reader.atr);
          return found == nullptr ? "" : found->name;
        });
      } catch (const Failure& reason) {
        failure = reason.what();
      } catch (const PcscError& error) {
        if (error.service_lost()) throw;
        failure = error.failure().what();
      }
    Json item = new_object();
    add_text(item.get(), "name", reader.name);
    add_text(item.get(), "present", reader.card_present() ? "true" : "false");
    add_text(item.get(), "atr", hexadecimal(reader.atr));
    add_text(item.get(), "profile", profile);
    if (!failure.empty()) add_text(item.get(), "errmsg", failure);
    cJSON_AddItemToArray(list, item.release());
  }
  return data;
}

/// Reads the first card that fits. When none does, the failure is the one of the first card.
Json PcscReader::read_any(const ProfileSet& profiles, const std::string& function,
                          const std::string& part) {
  std::optional<Failure> first_failure;
  const auto keep = [&](const Failure& failure) {
    if (!first_failure) first_failure = failure;
  };
  for (const ReaderState& reader : readers_with_card(part)) {
    try {
      Json data = with_card(*context, reader, [&](Card& card) {
        Json fields;
        const Profile* profile = find_profile(profiles, function, card, reader.atr);
        if (profile == nullptr) return fields;
        fields = new_object();
        read_card(*profile->find_function(function), card, fields.get());
        return fields;
      });
      if (data) return data;
      keep(Failure(failures::kUnknownCard, hexadecimal(reader.atr)));
    } catch (const Failure& failure) {
      keep(failure);
    } catch (const PcscError& error) {
      if (error.service_lost()) throw;
      keep(error.failure());
    }
  }
  throw Failure(*first_failure);
}

Json PcscReader::transmit(const cJSON* request) {
  const std::vector<std::string> commands = commands_of(request);
  const ReaderState reader = readers_with_card(text_argument(request, kReaderMember)).front();
  Json data = new_object();
  add_text(data.get(), "reader", reader.name);
  add_text(data.get(), "atr", hexadecimal(reader.atr));
  cJSON* answers = add_array(data.get(), "answers");
  Card card(*context, reader);
  for (const std::string& command : commands) {
    Json answer(cJSON_CreateString(hexadecimal(card.transmit(command)).c_str()));
    if (!answer || cJSON_AddItemToArray(answers, answer.release()) == 0) throw std::bad_alloc();
  }
  return data;
}
