#pragma once

#include <string>
#include <vector>

/// A page's request as the service hands it to a library.
struct Request {
  std::string label;    ///< what is special about it; empty: nothing
  std::string page;     ///< the request as the page sends it
  std::string name;     ///< the function name, lowered
  std::string command;  ///< the command text
};

/// This machine's, as the service tells it to libraries ("platform").
std::string architecture();

/// Takes a page's request apart as the service does. Throws std::invalid_argument with a sentence
/// for people when the service would not hand it to a library.
Request make_request(const std::string& page, const std::string& label = {});

/// The request with which a function is tried when the user gives none.
Request default_request(const std::string& function);

/// Variations on `page` that a careless or hostile page can send: arguments of other types, sizes
/// and encodings, up to the longest command text there is.
std::vector<Request> odd_requests(const std::string& page);

/// Requests for functions that the library does not declare. Names do reach a library that does not
/// serve them: one that is part of a name in its list, such as `declared`, is routed to it.
std::vector<Request> unknown_functions(const std::string& declared);
