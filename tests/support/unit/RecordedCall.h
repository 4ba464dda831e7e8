#pragma once

#include "support/common/ImportTableFake.h"
#include "support/unit/Journal.h"

#include <functional>
#include <utility>

namespace Testing
{

// A Windows function that does nothing but go to the journal, which decides whether it succeeds.
template <auto Function, class Type = decltype(Function)>
class RecordedCall;

template <auto Function, class Result, class... Arguments>
class RecordedCall<Function, Result(WINAPI*)(Arguments...)> : public Fake<Function>
{
public:
    RecordedCall(
        Journal& journal, Result success, Result failure, std::function<void()> whenItSucceeds = [] {})
        : Fake<Function>([&journal, success, failure, onSuccess = std::move(whenItSucceeds)](Arguments... arguments) {
              if (journal.Add(Details::NameOf<Function>().data(), arguments...) != ERROR_SUCCESS)
              {
                  return failure;
              }
              onSuccess();
              return success;
          })
    {}
};

} // namespace Testing
