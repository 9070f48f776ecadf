#pragma once

#include <string>
#include <vector>

#include "tools/libcheck/request.h"
#include "tools/libcheck/subject.h"

/// Sends each page request to the library, in a child process of its own, and judges the reply.
/// Returns the requests whose replies were usable: further checks can build on these.
std::vector<Request> check_requests(Subject& subject, const std::vector<Request>& requests);

/// Sends odd variations on the first answered request for each function, and requests for functions
/// that the library does not serve. One line tells of all that went well for a function; one tells
/// of a function among `requests` that has no answered request and is left out.
void check_odd_requests(Subject& subject, const std::vector<Request>& requests,
                        const std::vector<Request>& answered);
