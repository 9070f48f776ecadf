#pragma once

#include "readers/common/reply.h"
#include "readers/pcsc/pcsc.h"
#include "readers/pcsc/profile.h"

/// Whether the card is of this kind. Selects its application, if the profile names one.
bool is_of_kind(const Profile& profile, Card& card, std::string_view atr);

/// Takes the function's steps on a card of its kind and adds its members to `data`. Throws Failure
/// (card_refused, bad_card_data) and what Card::transmit throws.
void read_card(const CardFunction& function, Card& card, cJSON* data);
