#pragma once

#include "Finding.h"
#include "platform/PropertyList.h"

namespace ravelin::check {

/// What is wrong or odd in a configuration, each with what the agent does about it; a finding that
/// is ok for each server. Details: "key" and "value" as they stand in the file, "pair" counted from
/// 1. Any thread.
[[nodiscard]] Findings checkConfiguration(const platform::PropertyListDictionary& dictionary);

}  // namespace ravelin::check
