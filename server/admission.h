#pragma once

#include "access/access_rules.h"

struct lws;

// What the rules of access say of the HTTP request that libwebsockets has in hand. A refusal is
// answered with status 403 and named in the log.

/// Whether the request may be answered.
bool admit_request(lws* wsi, const AccessRules& rules);

/// Whether the request may become a connection of the protocol ("websocket") that it asks for.
bool admit_upgrade(lws* wsi, const AccessRules& rules, const char* protocol);

/// What the WebSocket connection that the request becomes may do. Answers nothing.
Rights connection_rights(lws* wsi, const AccessRules& rules);
