// Word pools of the sample generator: names, companies, places and phone
// formats of the countries whose contacts the demo database holds.
#pragma once

#include <span>
#include <string_view>

namespace ombrel::cli::sample {

using Pool = std::span<const std::string_view>;

struct Country {
  std::string_view code;
  // Patterns: '#' becomes a digit, {street} {n} {zip} {city} are filled in.
  std::string_view addressPattern;
  std::string_view zipPattern;
  std::string_view phonePattern;
  std::string_view mobilePattern;
  std::string_view tld;
  Pool streets;
  Pool cities;
  Pool legalForms;
  Pool surnameEndings;   // endings of built surnames, in the country's style
  Pool realSurnames;     // a few common real ones
  Pool secondAddresses;  // P.O. boxes, suites, floors
};

const Country& CountryAt(size_t index);
size_t CountryCount();

Pool FirstNames();
Pool SurnameStarts();
Pool SurnameMiddles();
Pool CompanyWords();
Pool CompanyTrades();
Pool Titles();
Pool PhoneLabels();
Pool EmailLabels();
Pool MailProviders();
Pool NoteLines();
Pool OtherTexts();
Pool Nicknames();
Pool Staff();  // account managers
Pool GenericMailboxes();  // the part before the @ of a company's own address

}  // namespace ombrel::cli::sample
