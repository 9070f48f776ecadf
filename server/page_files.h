#pragma once

struct lws_context;

/// Folder of the page, below the working directory; may itself be a link.
inline constexpr char kPageFolder[] = "./mount-origin";

/// Holds the context to regular files inside the page's folder: others would lead out of it, or
/// hold up the service, as a pipe does that nobody writes to. What is refused is named in the log.
void guard_page_files(lws_context* context);
