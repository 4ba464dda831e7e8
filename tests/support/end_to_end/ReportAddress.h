#pragma once

#include <string>

namespace Testing
{
// Replaces the address that a built program reports to, in its file, by another one that is not longer. Throws
// std::runtime_error when the address is not there exactly once.
void ReplaceReportAddress(const std::wstring& program, const std::string& dsn);

// Makes a program that was built with the product's own address report to nobody.
void KeepReportsHere(const std::wstring& program);
} // namespace Testing
