// The known-zone table: the system time zones the library maps to tz names,
// in a fixed order that the index cache file relies on, and the built-in
// alias links. Each row lists its Windows zone key names (the first the
// preferred one) and its tz names (the first the canonical one), then its
// standard and daylight abbreviations. The further tz names of a row are the
// other zones that the common Windows-to-tz mapping gives its Windows zone and
// the tz database's alias names of them; rows for which the mapping knows no
// more names carry fewer. The lists end at the first null.
#include "ZBTZFile.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// One row a line: the table reads like the list it is.
// clang-format off
const TZKnownZone kTZKnownZones[kTZKnownZoneCount] = {
    {{"Afghanistan Standard Time"}, {"Asia/Kabul"}, "AFT", ""},
    {{"Alaskan Standard Time"}, {"America/Juneau", "US/Alaska", "America/Anchorage", "SystemV/AST4ADT", "America/Yakutat"}, "AKST", "AKDT"},
    {{"Aleutian Standard Time"}, {"America/Adak"}, "HAST", "HADT"},
    {{"Altai Standard Time"}, {"Asia/Barnaul"}, "KRAT", "KRAST"},
    {{"Arab Standard Time"}, {"Asia/Kuwait", "Antarctica/Syowa", "Asia/Aden", "Asia/Riyadh", "Asia/Bahrain", "Asia/Qatar"}, "AST", ""},
    {{"Arabian Standard Time"}, {"Asia/Dubai", "Asia/Muscat"}, "GST", ""},
    {{"Astrakhan Standard Time"}, {"Europe/Astrakhan", "Europe/Ulyanovsk"}, "AST", ""},
    {{"Arabic Standard Time"}, {"Asia/Baghdad"}, "AST", "ADT"},
    {{"Argentina Standard Time"}, {"America/Argentina/Buenos_Aires", "America/Buenos_Aires"}, "ART", ""},
    {{"Atlantic Standard Time"}, {"America/Halifax", "Canada/Atlantic", "Atlantic/Bermuda", "America/Glace_Bay"}, "AST", "ADT"},
    {{"AUS Central Standard Time"}, {"Australia/Darwin", "Australia/North"}, "CST", ""},
    {{"Aus Central W. Standard Time"}, {"Australia/Eucla"}, "ACW", ""},
    {{"AUS Eastern Standard Time"}, {"Australia/Canberra", "Australia/ACT", "Australia/NSW", "Australia/Sydney", "Australia/Melbourne", "Australia/Victoria"}, "EST", ""},
    {{"Azerbaijan Standard Time"}, {"Asia/Baku"}, "AZT", "AZST"},
    {{"Azores Standard Time"}, {"Atlantic/Azores"}, "AZOT", "AZOST"},
    {{"Bahia Standard Time"}, {"America/Bahia"}, "BRT", "BRST"},
    {{"Bangladesh Standard Time"}, {"Asia/Dhaka", "Asia/Dacca"}, "BDT", ""},
    {{"Belarus Standard Time"}, {"Europe/Minsk"}, "MSK", ""},
    {{"Bougainville Standard Time"}, {"Pacific/Bougainville"}, "BST", ""},
    {{"Canada Central Standard Time"}, {"Canada/Saskatchewan", "America/Regina", "America/Swift_Current"}, "CST", ""},
    {{"Cape Verde Standard Time"}, {"Atlantic/Cape_Verde"}, "CVT", "CVST"},
    {{"Caucasus Standard Time"}, {"Asia/Yerevan"}, "BAKT", "BAKST"},
    {{"Cen. Australia Standard Time"}, {"Australia/Adelaide", "Australia/South"}, "CST", ""},
    {{"Central America Standard Time"}, {"CST6CDT"}, "CDT", "CST"},
    {{"Central Asia Standard Time"}, {"Asia/Thimphu", "Asia/Thimbu"}, "BTT", ""},
    {{"Central Brazilian Standard Time"}, {"America/Cuiaba"}, "AMT", "AMST"},
    {{"Central Europe Standard Time"}, {"Europe/Belgrade", "Europe/Ljubljana", "Europe/Podgorica", "Europe/Sarajevo", "Europe/Skopje"}, "CET", "CEST"},
    {{"Central European Standard Time"}, {"Europe/Sarajevo", "Poland", "Europe/Ljubljana", "Europe/Podgorica", "Europe/Skopje"}, "EET", "EEST"},
    {{"Central Pacific Standard Time"}, {"Pacific/Noumea"}, "NCT", "NCST"},
    {{"Central Standard Time"}, {"America/Chicago", "CST6CDT", "US/Central"}, "CST", "CDT"},
    {{"Central Standard Time (Mexico)"}, {"America/Mexico_City"}, "CST", "CDT"},
    {{"Chatham Islands Standard Time"}, {"Pacific/Chatham"}, "CHAST", "CHADT"},
    {{"China Standard Time"}, {"Asia/Hong_Kong", "Hongkong", "PRC", "Asia/Chongqing", "Asia/Harbin"}, "HKT", "HKST"},
    {{"Cuba Standard Time"}, {"America/Havana"}, "EST", "EDT"},
    {{"Dateline Standard Time"}, {"Etc/GMT+12"}, "GMT+12", ""},
    {{"E. Africa Standard Time"}, {"Africa/Addis_Ababa", "Africa/Asmara", "Africa/Dar_es_Salaam"}, "EAT", ""},
    {{"E. Australia Standard Time"}, {"Australia/Brisbane", "Australia/Queensland"}, "EST", ""},
    {{"E. Europe Standard Time"}, {"Europe/Bucharest"}, "EET", "EEST"},
    {{"E. South America Standard Time"}, {"America/Sao_Paulo"}, "BRT", "BRST"},
    {{"Easter Island Standard Time"}, {"Pacific/Easter"}, "EAST", "EASST"},
    {{"Eastern Standard Time"}, {"America/New_York", "EST5EDT", "US/Eastern", "America/Nassau", "America/Toronto"}, "EST", "EDT"},
    {{"Eastern Standard Time (Mexico)"}, {"America/Chetumal"}, "EST", "EDT"},
    {{"Egypt Standard Time"}, {"Africa/Cairo", "Egypt"}, "EET", "EEST"},
    {{"Ekaterinburg Standard Time"}, {"Asia/Yekaterinburg"}, "YEKT", "YEKST"},
    {{"Fiji Standard Time"}, {"Pacific/Fiji"}, "FJT", "FJST"},
    {{"FLE Standard Time"}, {"Europe/Helsinki", "Europe/Mariehamn", "Europe/Uzhgorod", "Europe/Zaporozhye", "Europe/Kiev", "Europe/Sofia", "Europe/Tallinn"}, "EET", "EEST"},
    {{"Georgian Standard Time"}, {"Asia/Tbilisi"}, "GET", ""},
    {{"GMT Standard Time"}, {"Europe/London", "GB", "GB-Eire", "Europe/Guernsey", "Europe/Isle_of_Man", "Europe/Jersey", "Europe/Belfast", "Atlantic/Canary", "Atlantic/Faeroe", "Europe/Dublin"}, "GMT", "BST"},
    {{"Greenland Standard Time"}, {"America/Godthab"}, "WGT", "WGST"},
    {{"Greenwich Standard Time"}, {"Africa/Casablanca", "Iceland"}, "GMT", "LRT"},
    {{"GTB Standard Time"}, {"Europe/Istanbul", "Turkey", "Asia/Istanbul", "Europe/Bucharest"}, "EET", "EEST"},
    {{"Haiti Standard Time"}, {"America/Port-au-Prince"}, "EST", "EDT"},
    {{"Hawaiian Standard Time"}, {"Pacific/Honolulu", "US/Hawaii", "Pacific/Johnston"}, "HST", "HDT"},
    {{"India Standard Time"}, {"Asia/Calcutta", "Asia/Kolkata"}, "IST", "BURT"},
    {{"Iran Standard Time"}, {"Asia/Tehran", "Iran"}, "IRST", "IRDT"},
    {{"Israel Standard Time"}, {"Asia/Jerusalem", "Israel", "Asia/Tel_Aviv"}, "IST", "IDDT"},
    {{"Jordan Standard Time"}, {"Asia/Amman"}, "EET", "EEST"},
    {{"Kaliningrad Standard Time"}, {"Europe/Kaliningrad"}, "FET", ""},
    {{"Kamchatka Standard Time"}, {"Asia/Kamchatka"}, "PETT", ""},
    {{"Korea Standard Time"}, {"Asia/Seoul", "ROK"}, "KST", "KDT"},
    {{"Libya Standard Time"}, {"Africa/Tripoli"}, "EET", ""},
    {{"Line Islands Standard Time"}, {"Pacific/Kiritimati"}, "LINT", ""},
    {{"Lord Howe Standard Time"}, {"Australia/Lord_Howe"}, "LHST", "LHDT"},
    {{"Magadan Standard Time"}, {"Asia/Magadan"}, "MAGT", ""},
    {{"Mauritius Standard Time"}, {"Indian/Mauritius"}, "MUT", ""},
    {{"Marquesas Standard Time"}, {"Pacific/Marquesas"}, "MART", ""},
    {{"Mid-Atlantic Standard Time"}, {"Atlantic/South_Georgia"}, "GST", ""},
    {{"Middle East Standard Time"}, {"Asia/Beirut"}, "EET", "EEST"},
    {{"Montevideo Standard Time"}, {"America/Montevideo"}, "UYT", "UYST"},
    {{"Morocco Standard Time"}, {"Europe/Lisbon", "Portugal"}, "WET", "WEST"},
    {{"Mountain Standard Time"}, {"America/Denver", "MST7MDT", "Navajo", "US/Mountain", "America/Shiprock"}, "MST", "MDT"},
    {{"Mountain Standard Time (Mexico)"}, {"America/Chihuahua"}, "MST", "MDT"},
    {{"Myanmar Standard Time"}, {"Asia/Rangoon"}, "JST", "BURT"},
    {{"N. Central Asia Standard Time"}, {"Asia/Almaty", "Asia/Novosibirsk"}, "ALMT", "ALMST"},
    {{"Namibia Standard Time"}, {"Africa/Windhoek"}, "WAT", "WAST"},
    {{"Nepal Standard Time"}, {"Asia/Katmandu"}, "IST", "NPT"},
    {{"New Zealand Standard Time"}, {"Pacific/Auckland", "NZ"}, "NZST", "NZDT"},
    {{"Newfoundland Standard Time"}, {"Canada/Newfoundland", "America/St_Johns"}, "NST", "NDT"},
    {{"Norfolk Standard Time"}, {"Pacific/Norfolk"}, "NFT", ""},
    {{"North Asia East Standard Time"}, {"Asia/Irkutsk"}, "IRKT", "IRKST"},
    {{"North Asia Standard Time"}, {"Asia/Krasnoyarsk"}, "KRAT", "KRAST"},
    {{"North Korea Standard Time"}, {"Asia/Pyongyang"}, "PYT", ""},
    {{"Pacific SA Standard Time"}, {"America/Santiago"}, "CLT", "CLST"},
    {{"Pacific Standard Time"}, {"America/Los_Angeles", "US/Pacific", "PST8PDT", "America/Vancouver", "Canada/Pacific"}, "PST", "PDT"},
    {{"Pacific Standard Time (Mexico)"}, {"America/Santa_Isabel"}, "PST", "PDT"},
    {{"Pakistan Standard Time"}, {"Asia/Karachi"}, "PKT", ""},
    {{"Pakistan Standard Time"}, {"Indian/Kerguelen"}, "TFT", ""},
    {{"Paraguay Standard Time"}, {"America/Asuncion"}, "PYT", "PYST"},
    {{"Romance Standard Time"}, {"Europe/Paris", "Europe/Monaco", "Europe/Brussels", "Europe/Copenhagen"}, "CET", "CEST"},
    {{"Russia Time Zone 10"}, {"Asia/Srednekolymsk"}, "SRET", ""},
    {{"Russia Time Zone 11"}, {"Asia/Anadyr"}, "ANAT", ""},
    {{"Russia Time Zone 3"}, {"Europe/Samara"}, "SAMT", ""},
    {{"Russian Standard Time"}, {"Europe/Moscow", "W-SU", "Europe/Kirov"}, "MSK", ""},
    {{"SA Eastern Standard Time"}, {"America/Buenos_Aires"}, "ART", "ARST"},
    {{"SA Pacific Standard Time"}, {"America/Lima", "America/Bogota"}, "COT", ""},
    {{"SA Western Standard Time"}, {"America/Caracas", "America/La_Paz"}, "BOT", "BOST"},
    {{"Saint Pierre Standard Time"}, {"America/Miquelon"}, "PMST", "PMDT"},
    {{"Sakhalin Standard Time"}, {"Asia/Sakhalin"}, "SAKT", ""},
    {{"Samoa Standard Time"}, {"Pacific/Midway", "US/Samoa", "Pacific/Samoa", "Pacific/Pago_Pago"}, "NST", "NDT"},
    {{"SE Asia Standard Time"}, {"Asia/Bangkok"}, "ICT", ""},
    {{"SE Asia Standard Time"}, {"Asia/Jakarta"}, "WIB", ""},
    {{"Singapore Standard Time"}, {"Asia/Singapore"}, "SGT", ""},
    {{"Singapore Standard Time"}, {"Asia/Kuala_Lumpur"}, "MYT", ""},
    {{"Singapore Standard Time"}, {"Asia/Manila"}, "PHT", ""},
    {{"South Africa Standard Time"}, {"Africa/Harare"}, "CAT", ""},
    {{"Sri Lanka Standard Time"}, {"Asia/Colombo"}, "IST", "IHST"},
    {{"Syria Standard Time"}, {"Asia/Damascus"}, "EET", "EEST"},
    {{"Taipei Standard Time"}, {"Asia/Taipei", "ROC"}, "CST", "CDT"},
    {{"Tasmania Standard Time"}, {"Australia/Hobart", "Australia/Tasmania"}, "EST", ""},
    {{"Tocantins Standard Time", "Argentina Standard Time"}, {"America/Araguaina"}, "BRT", ""},
    {{"Tokyo Standard Time"}, {"Asia/Tokyo"}, "JST", "JDT"},
    {{"Tomsk Standard Time"}, {"Asia/Tomsk"}, "MSK+04", ""},
    {{"Tonga Standard Time"}, {"Pacific/Tongatapu"}, "TOT", "TOST"},
    {{"Transbaikal Standard Time"}, {"Asia/Chita"}, "MSK+06", ""},
    {{"Turkey Standard Time"}, {"Europe/Istanbul"}, "EET", "EEST"},
    {{"Turks And Caicos Standard Time"}, {"America/Grand_Turk"}, "AST", ""},
    {{"Ulaanbaatar Standard Time"}, {"Asia/Ulaanbaatar"}, "ULAT", ""},
    {{"US Eastern Standard Time"}, {"US/East-Indiana", "America/Indianapolis", "America/Fort_Wayne", "America/Indiana/Indianapolis"}, "EST", "EDT"},
    {{"US Mountain Standard Time"}, {"US/Arizona", "MST", "America/Creston"}, "MST", "MDT"},
    {{"UTC"}, {"UTC", "Etc/UCT", "Etc/Universal", "Etc/Zulu"}, "UTC", ""},
    {{"UTC+12"}, {"Etc/GMT-12"}, "GMT-12", ""},
    {{"UTC-02"}, {"Etc/GMT+2"}, "GMT+2", ""},
    {{"UTC-08"}, {"Etc/GMT+8"}, "GMT+8", ""},
    {{"UTC-09"}, {"Etc/GMT+9"}, "GMT+9", ""},
    {{"UTC-11"}, {"Etc/GMT+11"}, "GMT+11", ""},
    {{"Venezuela Standard Time"}, {"America/Caracas"}, "VET", ""},
    {{"Vladivostok Standard Time"}, {"Asia/Vladivostok"}, "VLAST", "VLASST"},
    {{"W. Australia Standard Time"}, {"Australia/Perth"}, "WST", ""},
    {{"W. Central Africa Standard Time"}, {"Africa/Lagos", "Africa/Bangui"}, "WAT", ""},
    {{"W. Europe Standard Time"}, {"Europe/Amsterdam", "CET", "MET", "Arctic/Longyearbyen", "Europe/Copenhagen", "Europe/Luxembourg", "Europe/Oslo", "Europe/Stockholm", "Atlantic/Jan_Mayen"}, "CET", "CEST"},
    {{"W. Mongolia Standard Time"}, {"Asia/Hovd"}, "HOVT", "HOVST"},
    {{"West Asia Standard Time"}, {"Asia/Ashgabat", "Asia/Ashkhabad", "Asia/Tashkent"}, "PKT", "PKST"},
    {{"West Bank Standard Time"}, {"Asia/Gaza", "Asia/Hebron"}, "EET", "EEST"},
    {{"West Pacific Standard Time"}, {"Pacific/Guam", "Antarctica/DumontDUrville", "Pacific/Chuuk"}, "GST", ""},
    {{"Yakutsk Standard Time"}, {"Asia/Yakutsk"}, "YAKT", "YAKST"},
};
// clang-format on

// Alias names of the tz database whose canonical zones are in the table
// above, in the tz database's own order.
const char *const kTZBuiltinLinks[kTZBuiltinLinkCount][2] = {
    {"Australia/ACT", "Australia/Sydney"},
    {"Australia/LHI", "Australia/Lord_Howe"},
    {"Australia/NSW", "Australia/Sydney"},
    {"Australia/North", "Australia/Darwin"},
    {"Australia/Queensland", "Australia/Brisbane"},
    {"Australia/South", "Australia/Adelaide"},
    {"Australia/Tasmania", "Australia/Hobart"},
    {"Australia/Victoria", "Australia/Melbourne"},
    {"Australia/West", "Australia/Perth"},
    {"Brazil/East", "America/Sao_Paulo"},
    {"CET", "Europe/Brussels"},
    {"CST6CDT", "America/Chicago"},
    {"Canada/Atlantic", "America/Halifax"},
    {"Canada/Eastern", "America/Toronto"},
    {"Canada/Newfoundland", "America/St_Johns"},
    {"Canada/Pacific", "America/Vancouver"},
    {"Canada/Saskatchewan", "America/Regina"},
    {"Chile/Continental", "America/Santiago"},
    {"Chile/EasterIsland", "Pacific/Easter"},
    {"Cuba", "America/Havana"},
    {"EST5EDT", "America/New_York"},
    {"Egypt", "Africa/Cairo"},
    {"Eire", "Europe/Dublin"},
    {"GB", "Europe/London"},
    {"GB-Eire", "Europe/London"},
    {"Hongkong", "Asia/Hong_Kong"},
    {"Iran", "Asia/Tehran"},
    {"Israel", "Asia/Jerusalem"},
    {"Japan", "Asia/Tokyo"},
    {"Libya", "Africa/Tripoli"},
    {"MET", "Europe/Brussels"},
    {"MST7MDT", "America/Denver"},
    {"Mexico/General", "America/Mexico_City"},
    {"NZ", "Pacific/Auckland"},
    {"NZ-CHAT", "Pacific/Chatham"},
    {"Navajo", "America/Denver"},
    {"Portugal", "Europe/Lisbon"},
    {"ROC", "Asia/Taipei"},
    {"ROK", "Asia/Seoul"},
    {"Singapore", "Asia/Singapore"},
    {"Turkey", "Europe/Istanbul"},
    {"US/Alaska", "America/Anchorage"},
    {"US/Aleutian", "America/Adak"},
    {"US/Central", "America/Chicago"},
    {"US/East-Indiana", "America/Indiana/Indianapolis"},
    {"US/Eastern", "America/New_York"},
    {"US/Hawaii", "Pacific/Honolulu"},
    {"US/Mountain", "America/Denver"},
    {"US/Pacific", "America/Los_Angeles"},
    {"US/Samoa", "Pacific/Pago_Pago"},
    {"W-SU", "Europe/Moscow"},
    {"America/Buenos_Aires", "America/Argentina/Buenos_Aires"},
    {"America/Indianapolis", "America/Indiana/Indianapolis"},
    {"Pacific/Samoa", "Pacific/Pago_Pago"},
    {"Africa/Bangui", "Africa/Lagos"},
    {"Africa/Brazzaville", "Africa/Lagos"},
    {"Africa/Douala", "Africa/Lagos"},
    {"Africa/Kinshasa", "Africa/Lagos"},
};

namespace {

// An open-addressed index from tz name to (row, position), built on first
// use: a lookup by name is one hash and about one comparison, where a walk
// of the rows compares some three hundred names.
struct NameIndex {
  static constexpr uint32_t kSlots = 1024; // more than three times the names
  int16_t row[kSlots];
  int16_t position[kSlots];

  NameIndex() {
    std::fill(std::begin(row), std::end(row), int16_t{-1});
    for (int32_t r = 0; r < kTZKnownZoneCount; ++r)
      for (int32_t p = 0; p < kTZMaxZoneNames && kTZKnownZones[r].zoneNames[p]; ++p) {
        uint32_t slot = tz_database_hash(kTZKnownZones[r].zoneNames[p]) % kSlots;
        while (row[slot] >= 0 && std::strcmp(kTZKnownZones[row[slot]].zoneNames[position[slot]],
                                             kTZKnownZones[r].zoneNames[p]) != 0)
          slot = (slot + 1) % kSlots;
        if (row[slot] < 0) { // the first row listing a name keeps it
          row[slot] = static_cast<int16_t>(r);
          position[slot] = static_cast<int16_t>(p);
        }
      }
  }
};

} // namespace

int32_t tz_known_zone_find(const char *name, int32_t *nameIndex) noexcept {
  if (name == nullptr)
    return -1;
  static const NameIndex index;
  for (uint32_t slot = tz_database_hash(name) % NameIndex::kSlots; index.row[slot] >= 0;
       slot = (slot + 1) % NameIndex::kSlots)
    if (std::strcmp(kTZKnownZones[index.row[slot]].zoneNames[index.position[slot]], name) == 0) {
      if (nameIndex != nullptr)
        *nameIndex = index.position[slot];
      return index.row[slot];
    }
  return -1;
}
