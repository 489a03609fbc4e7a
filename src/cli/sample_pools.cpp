// The word pools behind the demo database. Surnames are mostly built from
// syllables so that a million cards rarely share a full name by chance;
// accented letters appear throughout, as on real European cards.
#include "cli/sample_pools.h"

#include <array>

namespace ombrel::cli::sample {

namespace {

using S = std::string_view;

constexpr S kFirstNames[] = {
    "John", "Mary", "Peter", "Anna", "Michael", "Sarah", "David", "Laura", "James", "Emma", "Robert", "Olivia",
    "William", "Sophie", "Thomas", "Charlotte", "Daniel", "Emily", "Richard", "Hannah", "Mark", "Lucy", "Paul",
    "Grace", "Andrew", "Chloe", "Steven", "Megan", "Kevin", "Rachel", "Brian", "Julia", "George", "Alice",
    "Edward", "Helen", "Jürgen", "Zoë", "José", "Łukasz", "Ségolène", "François", "Agnès", "Søren", "Björn",
    "Małgorzata", "Núria", "Åsa", "Renée", "Thérèse", "Jiří", "Tomáš", "Óscar", "Inés", "Gökhan", "Çağla",
    "Hélène", "Jérôme", "Céline", "Loïc", "Gaëlle", "Noémie", "Andrés", "Sofía", "Raúl", "Begoña", "Iñaki",
    "Lucía", "Joaquín", "Mónica", "Grzegorz", "Paweł", "Zofia", "Agnieszka", "Wojciech", "Krzysztof", "Bartłomiej",
    "Katarzyna", "Jörg", "Björn", "Günther", "Märta", "Göran", "Ingrid", "Lars", "Sven", "Karin", "Kerstin",
    "Ulrike", "Dieter", "Heinz", "Sabine", "Monika", "Wolfgang", "Stefan", "Claudia", "Matthias", "Anke",
    "Niklas", "Lena", "Felix", "Marie", "Lukas", "Leonie", "Jonas", "Mia", "Tobias", "Katrin", "Florian",
    "Giulia", "Marco", "Francesca", "Alessandro", "Chiara", "Luca", "Federica", "Matteo", "Valentina", "Davide",
    "Elena", "Stefano", "Silvia", "Andrea", "Paola", "Giorgio", "Jan", "Sanne", "Pieter", "Femke", "Bram", "Lotte",
    "Sander", "Eva", "Daan", "Ilse", "Ruud", "Marieke", "Petr", "Lenka", "Pavel", "Jana", "Martin", "Hana",
    "Ondřej", "Tereza", "Václav", "Zuzana", "Amélie", "Antoine", "Camille", "Nicolas", "Julien", "Manon",
    "Mathieu", "Élodie", "Théo", "Léa", "Maxime", "Aurélie", "Pierre", "Claire", "Vincent", "Isabelle", "Omar",
    "Fatima", "Ahmed", "Leila", "Yusuf", "Aylin", "Mehmet", "Elif", "Kenji", "Yuki", "Wei", "Mei", "Hiroshi",
    "Aiko", "Raj", "Priya", "Arjun", "Ananya", "Chen", "Ling", "Carlos", "Ana", "Miguel", "Carmen", "Diego",
    "Elena", "Pablo", "Marta", "Javier", "Cristina", "Sergio", "Patricia", "Fernando", "Beatriz", "Kathleen",
    "Patrick", "Siobhan", "Ciarán", "Aoife", "Seán", "Niamh", "Declan", "Róisín", "Eoin", "Gráinne", "Olga",
    "Dmitri", "Irina", "Sergei", "Natalia", "Ivan", "Svetlana", "Nikolai", "Ekaterina", "Oleg", "Tatiana",
    "Hans", "Greta", "Otto", "Frieda", "Emil", "Ida", "Oskar", "Elsa", "Anton", "Clara", "Linus", "Ronja",
    "Mikael", "Astrid", "Henrik", "Sigrid", "Erik", "Freja", "Magnus", "Solveig", "Jakob", "Ebba", "Viktor",
    "Linnéa", "Benoît", "Cécile", "Frédéric", "Maëlle", "Rémi", "Estelle", "Gérard", "Brigitte", "Yves",
    "Odile", "Adrián", "Ángela", "Rubén", "Irene", "Álvaro", "Rocío", "Nuño", "Ainhoa", "Tadeusz", "Jadwiga",
    "Michał", "Ewa", "Piotr", "Joanna", "Tomasz", "Magdalena", "Marek", "Beata", "Jacek", "Dorota"};

constexpr S kSurnameStarts[] = {
    "Ab", "Al", "Ar", "Bau", "Ber", "Bor", "Bran", "Brei", "Cas", "Cor", "Dal", "Dor", "Eck", "Ell", "Fal", "Fer",
    "Gal", "Gor", "Gra", "Hal", "Har", "Hei", "Hol", "Kal", "Kar", "Kel", "Kor", "Lan", "Lin", "Lor", "Mar", "Mel",
    "Mor", "Nor", "Nel", "Ost", "Pal", "Per", "Ros", "Sal", "Sch", "Ster", "Tal", "Tor", "Val", "Ver", "Wal", "Wes",
    "Zel", "Mü", "Bö", "Hé", "Lé", "Ró", "Gö", "Ša", "Ká", "Dvo", "Chal", "Fried"};
constexpr S kSurnameMiddles[] = {"a",   "e",   "i",  "o",  "en",  "er",  "in",  "an",  "el",  "ar",
                                 "ing", "ber", "ter", "ner", "len", "ren", "to",  "di",  "ma",  "li",
                                 "ko",  "va",  "ri",  "lo",  "mi",  "sa",  "de",  "ka",  "no",  "ve",
                                 "gar", "mon", "val", "ter", "hor", "bel", "lin", "dor", "mer", "ran"};

constexpr S kCompanyWords[] = {
    "Alpen", "Nordwind", "Silverline", "Blue Harbor", "Kestrel", "Vantage", "Orion", "Lumen", "Cobalt", "Meridian",
    "Aurora", "Helix", "Granite", "Evergreen", "Falcon", "Polaris", "Summit", "Riverside", "Brightwater", "Ironbridge",
    "Nova", "Zenith", "Atlas", "Keystone", "Pioneer", "Bergmann", "Rheintal", "Lindenhof", "Seeblick", "Sonnenberg",
    "Beaulieu", "Montclair", "Bellevue", "Clairval", "Rivière", "Soleil", "Cordillera", "Almendro", "Sierra Azul",
    "Vistamar", "Wisła", "Tatry", "Bałtyk", "Mazowsze", "Vltava", "Morava", "Adriatica", "Toscana", "Dolomiti",
    "Lago Verde", "Noorderlicht", "Zuiderzee", "Fjällstjärna", "Östersjö", "Skogsglänta", "Quantum", "Vertex",
    "Northstar", "Greenfield", "Redwood"};
constexpr S kCompanyTrades[] = {"Systems",    "Logistik",     "Consulting", "Médical",     "Solutions", "Trading",
                                "Analytics",  "Design",       "Software",   "Engineering", "Holding",   "Partners",
                                "Immobilien", "Bau",          "Transports", "Industrie",   "Energía",   "Textil",
                                "Foods",      "Pharma",       "Media",      "Robotics",    "Finance",   "Optik",
                                "Maschinen",  "Distribución", "Technologie", "Verlag",     "Services",  "Labs"};

constexpr S kTitles[] = {"Sales Manager", "Chief Executive Officer", "Managing Director", "Head of Purchasing",
                         "Software Engineer", "Project Manager", "Marketing Director", "Account Executive",
                         "Chief Financial Officer", "Product Manager", "Senior Consultant", "Office Manager",
                         "Head of IT", "Business Development Manager", "Quality Engineer", "Buyer",
                         "Customer Service Lead", "Operations Manager", "Research Scientist", "Art Director",
                         "Legal Counsel", "HR Manager", "Key Account Manager", "Technical Director",
                         "Geschäftsführer", "Vertriebsleiterin", "Einkaufsleiter", "Prokurist",
                         "Directrice commerciale", "Responsable Achats", "Ingénieur d'affaires", "Chef de projet",
                         "Director de Ventas", "Jefa de Compras", "Ingeniero de Ventas", "Dyrektor Handlowy",
                         "Kierownik Projektu", "Direttore Commerciale", "Responsabile Acquisti", "Inköpschef",
                         "Försäljningschef", "Obchodní ředitel", "Partner", "Founder", "Consultant",
                         "Architect", "Senior Editor", "Press Officer", "Logistics Coordinator", "Data Analyst"};

constexpr S kPhoneLabels[] = {"Mobile", "Mobile", "Mobile", "Home", "Work", "Car", "Assistant", "Main", "Other"};
constexpr S kEmailLabels[] = {"Home", "Work", "Private", "Other", "Home"};
constexpr S kMailProviders[] = {"gmail.com", "outlook.com", "web.de", "gmx.de", "orange.fr", "free.fr",
                                "yahoo.es", "wp.pl", "libero.it", "seznam.cz", "telia.se", "ziggo.nl"};
constexpr S kNoteLines[] = {"Met at the trade fair in Hannover", "Interested in the new price list",
                            "Call back after the holidays", "Prefers e-mail to phone",
                            "Introduced by a colleague", "Sent samples on request", "Follow up in Q3",
                            "Speaks French and German", "Owes us a reference", "Visited our stand twice"};
constexpr S kOtherTexts[] = {"Stand 4B", "Building C, 3rd floor", "Reception: ask for extension 12",
                             "VAT no. on invoice", "Parking behind the building", "Open Mon–Fri 8–17"};
constexpr S kNicknames[] = {"Jo", "Bea", "Max", "Kiki", "Toto", "Pepe", "Gigi", "Bubu", "Sunny", "Doc",
                            "Flo", "Mimi", "Chip", "Lulu", "Nico", "Tiny"};
constexpr S kGenericMailboxes[] = {"info", "info", "info", "kontakt", "contact", "office", "sales", "hello"};
constexpr S kStaff[] = {"A. Berger", "C. Dupré", "M. Nowak", "S. García", "T. Lindqvist", "R. Rossi"};

// Countries.
constexpr S kDeStreets[] = {"Hauptstraße", "Bahnhofstraße", "Gartenweg", "Lindenallee", "Schillerstraße",
                            "Am Markt", "Königsallee", "Mühlenweg", "Goethestraße", "Rosenstraße"};
constexpr S kDeCities[] = {"Berlin", "München", "Köln", "Düsseldorf", "Nürnberg", "Münster", "Lübeck",
                           "Göttingen", "Würzburg", "Saarbrücken"};
constexpr S kDeForms[] = {"GmbH", "AG", "GmbH & Co. KG", "KG"};
constexpr S kDeEndings[] = {"mann", "er", "berg", "rath", "hoff", "meier", "bach", "stein"};
constexpr S kDeReal[] = {"Müller", "Schmidt", "Schröder", "Weiß", "Schäfer", "Krüger", "Hoffmann", "Köhler"};
constexpr S kDeSecond[] = {"Postfach 10 12 34", "2. OG", "Hinterhaus", "Gebäude B"};

constexpr S kFrStreets[] = {"rue de la République", "avenue Jean-Jaurès", "boulevard Saint-Michel",
                            "rue Victor-Hugo", "place de l'Église", "rue des Écoles", "quai Voltaire",
                            "chemin des Vignes"};
constexpr S kFrCities[] = {"Paris", "Lyon", "Nîmes", "Besançon", "Orléans", "Créteil", "Montpellier",
                           "Aix-en-Provence", "Périgueux", "Saint-Étienne"};
constexpr S kFrForms[] = {"SARL", "S.A.", "SAS", "EURL"};
constexpr S kFrEndings[] = {"ard", "eau", "ier", "ot", "and", "elle", "ieux", "ès"};
constexpr S kFrReal[] = {"Dupont", "Lefèvre", "Moreau", "Giraud", "Bérenger", "Rousseau", "Chevalier", "Lemaître"};
constexpr S kFrSecond[] = {"BP 55", "Bâtiment A", "3e étage", "CS 30012"};

constexpr S kUsStreets[] = {"Main Street", "Oak Avenue", "Maple Drive", "Park Boulevard", "Cedar Lane",
                            "Washington Street", "Lake Shore Drive", "Elm Street"};
constexpr S kUsCities[] = {"Springfield, IL", "Austin, TX", "Portland, OR", "Madison, WI", "Boulder, CO",
                           "Raleigh, NC", "Columbus, OH", "Tucson, AZ"};
constexpr S kUsForms[] = {"Inc.", "LLC", "Corp.", "Co."};
constexpr S kUsEndings[] = {"son", "ton", "ley", "field", "wood", "ford", "well", "man"};
constexpr S kUsReal[] = {"Smith", "Johnson", "Williams", "Brown", "Jones", "Miller", "Davis", "Wilson"};
constexpr S kUsSecond[] = {"Suite 300", "Floor 12", "P.O. Box 1123", "Unit 7"};

constexpr S kUkStreets[] = {"High Street", "Station Road", "Church Lane", "Victoria Road", "Mill Lane",
                            "King's Road", "The Crescent", "Queen Street"};
constexpr S kUkCities[] = {"Leeds", "Bristol", "York", "Oxford", "Cambridge", "Norwich", "Bath", "Exeter"};
constexpr S kUkForms[] = {"Ltd", "plc", "LLP", "& Sons Ltd"};
constexpr S kUkEndings[] = {"ham", "worth", "shaw", "by", "croft", "ridge", "ton", "ington"};
constexpr S kUkReal[] = {"Taylor", "Evans", "Thomas", "Roberts", "Walker", "Wright", "Hughes", "Edwards"};
constexpr S kUkSecond[] = {"Unit 4", "Second Floor", "PO Box 77", "Riverside House"};

constexpr S kEsStreets[] = {"Calle Mayor", "Avenida de la Constitución", "Calle del Sol", "Paseo de Gracia",
                            "Calle Alcalá", "Plaza de España", "Calle de la Reina", "Ronda de Toledo"};
constexpr S kEsCities[] = {"Madrid", "Málaga", "Córdoba", "Cádiz", "León", "Almería", "Logroño", "Cáceres"};
constexpr S kEsForms[] = {"S.L.", "S.A.", "S.L.U."};
constexpr S kEsEndings[] = {"ez", "ero", "ada", "illa", "ón", "ales", "ano", "edo"};
constexpr S kEsReal[] = {"García", "Martínez", "López", "Sánchez", "Pérez", "Gómez", "Jiménez", "Núñez"};
constexpr S kEsSecond[] = {"2º B", "Local 3", "Apartado 120", "Planta 4"};

constexpr S kPlStreets[] = {"ul. Długa", "ul. Marszałkowska", "ul. Piękna", "al. Jerozolimskie", "ul. Świętojańska",
                            "ul. Kościuszki", "ul. Słowackiego", "pl. Wolności"};
constexpr S kPlCities[] = {"Kraków", "Łódź", "Gdańsk", "Poznań", "Wrocław", "Warszawa", "Białystok", "Toruń"};
constexpr S kPlForms[] = {"Sp. z o.o.", "S.A.", "Sp.k."};
constexpr S kPlEndings[] = {"ski", "wicz", "czyk", "ak", "ewski", "owski", "iak", "ecki"};
constexpr S kPlReal[] = {"Nowak", "Kowalski", "Wiśniewski", "Wójcik", "Kamiński", "Lewandowski", "Zieliński",
                         "Dąbrowski"};
constexpr S kPlSecond[] = {"lok. 5", "piętro 3", "skr. poczt. 44", "budynek B"};

constexpr S kItStreets[] = {"Via Roma", "Corso Italia", "Via Garibaldi", "Piazza del Duomo", "Via Dante",
                            "Viale dei Mille", "Via Verdi", "Via Mazzini"};
constexpr S kItCities[] = {"Milano", "Torino", "Bologna", "Firenze", "Genova", "Forlì", "Cantù", "Napoli"};
constexpr S kItForms[] = {"S.r.l.", "S.p.A.", "S.n.c."};
constexpr S kItEndings[] = {"ini", "etti", "one", "ari", "ucci", "elli", "ano", "à"};
constexpr S kItReal[] = {"Rossi", "Russo", "Ferrari", "Esposito", "Bianchi", "Romano", "Colombo", "Niccolò"};
constexpr S kItSecond[] = {"Scala B", "Piano 2", "Casella postale 9", "Interno 4"};

constexpr S kNlStreets[] = {"Kerkstraat", "Dorpsstraat", "Herengracht", "Molenweg", "Stationsplein",
                            "Keizersgracht", "Schoolstraat", "Beukenlaan"};
constexpr S kNlCities[] = {"Amsterdam", "Utrecht", "Groningen", "Leiden", "Delft", "Haarlem", "Zwolle", "Breda"};
constexpr S kNlForms[] = {"B.V.", "N.V.", "V.O.F."};
constexpr S kNlEndings[] = {"huis", "sen", "man", "dijk", "veld", "stra", "hout", "berg"};
constexpr S kNlReal[] = {"de Jong", "Jansen", "de Vries", "van den Berg", "Bakker", "Visser", "Smit", "Meijer"};
constexpr S kNlSecond[] = {"Postbus 212", "3e verdieping", "Unit 12", "Gebouw Noord"};

constexpr S kSeStreets[] = {"Storgatan", "Drottninggatan", "Kungsgatan", "Järnvägsgatan", "Skolvägen",
                            "Ågatan", "Östra Hamngatan", "Södra Vägen"};
constexpr S kSeCities[] = {"Stockholm", "Göteborg", "Malmö", "Uppsala", "Västerås", "Örebro", "Linköping", "Umeå"};
constexpr S kSeForms[] = {"AB", "HB", "KB"};
constexpr S kSeEndings[] = {"sson", "berg", "qvist", "ström", "lund", "gren", "dahl", "holm"};
constexpr S kSeReal[] = {"Andersson", "Johansson", "Karlsson", "Nilsson", "Eriksson", "Söderström", "Öberg",
                         "Åkesson"};
constexpr S kSeSecond[] = {"Box 3120", "Plan 4", "Hus C", "Lgh 1102"};

constexpr S kCzStreets[] = {"Václavské náměstí", "Národní", "Husova", "Masarykova", "Palackého", "Nádražní",
                            "Karlova", "Jiráskova"};
constexpr S kCzCities[] = {"Praha", "Brno", "Ostrava", "Plzeň", "Olomouc", "Liberec", "České Budějovice",
                           "Hradec Králové"};
constexpr S kCzForms[] = {"s.r.o.", "a.s.", "v.o.s."};
constexpr S kCzEndings[] = {"ák", "ek", "ík", "ová", "ský", "ec", "ka", "ný"};
constexpr S kCzReal[] = {"Novák", "Svoboda", "Dvořák", "Černý", "Procházka", "Kučera", "Veselý", "Horák"};
constexpr S kCzSecond[] = {"P.O. Box 15", "3. patro", "budova A", "vchod B"};

const std::array<Country, 10> kCountries = {{
    {"DE", "{street} {n}, {zip} {city}", "#####", "+49 ## #######", "+49 17# #######", "de", kDeStreets, kDeCities,
     kDeForms, kDeEndings, kDeReal, kDeSecond},
    {"FR", "{n} {street}, {zip} {city}", "#####", "+33 # ## ## ## ##", "+33 6 ## ## ## ##", "fr", kFrStreets,
     kFrCities, kFrForms, kFrEndings, kFrReal, kFrSecond},
    {"US", "{n} {street}, {city} {zip}", "#####", "(###) ###-####", "(###) ###-####", "com", kUsStreets, kUsCities,
     kUsForms, kUsEndings, kUsReal, kUsSecond},
    {"UK", "{n} {street}, {city} {zip}", "LS# #AB", "+44 20 #### ####", "+44 7### ######", "co.uk", kUkStreets,
     kUkCities, kUkForms, kUkEndings, kUkReal, kUkSecond},
    {"ES", "{street} {n}, {zip} {city}", "#####", "+34 9## ### ###", "+34 6## ### ###", "es", kEsStreets, kEsCities,
     kEsForms, kEsEndings, kEsReal, kEsSecond},
    {"PL", "{street} {n}, ##-### {city}", "", "+48 ## ### ## ##", "+48 5## ### ###", "pl", kPlStreets, kPlCities,
     kPlForms, kPlEndings, kPlReal, kPlSecond},
    {"IT", "{street} {n}, {zip} {city}", "#####", "+39 0# #### ####", "+39 3## ### ####", "it", kItStreets,
     kItCities, kItForms, kItEndings, kItReal, kItSecond},
    {"NL", "{street} {n}, {zip} {city}", "#### AB", "+31 ## ### ####", "+31 6 #### ####", "nl", kNlStreets,
     kNlCities, kNlForms, kNlEndings, kNlReal, kNlSecond},
    {"SE", "{street} {n}, {zip} {city}", "### ##", "+46 8 ### ### ##", "+46 70 ### ## ##", "se", kSeStreets,
     kSeCities, kSeForms, kSeEndings, kSeReal, kSeSecond},
    {"CZ", "{street} {n}, {zip} {city}", "### ##", "+420 2## ### ###", "+420 6## ### ###", "cz", kCzStreets,
     kCzCities, kCzForms, kCzEndings, kCzReal, kCzSecond},
}};

}  // namespace

const Country& CountryAt(size_t index) { return kCountries[index % kCountries.size()]; }
size_t CountryCount() { return kCountries.size(); }

Pool FirstNames() { return kFirstNames; }
Pool SurnameStarts() { return kSurnameStarts; }
Pool SurnameMiddles() { return kSurnameMiddles; }
Pool CompanyWords() { return kCompanyWords; }
Pool CompanyTrades() { return kCompanyTrades; }
Pool Titles() { return kTitles; }
Pool PhoneLabels() { return kPhoneLabels; }
Pool EmailLabels() { return kEmailLabels; }
Pool MailProviders() { return kMailProviders; }
Pool NoteLines() { return kNoteLines; }
Pool OtherTexts() { return kOtherTexts; }
Pool Nicknames() { return kNicknames; }
Pool Staff() { return kStaff; }
Pool GenericMailboxes() { return kGenericMailboxes; }

}  // namespace ombrel::cli::sample
