/* The message catalogue and the one function that forms a message from it.
   Most texts write the acute accent where an apostrophe would stand. */
#include "messages.h"

#include <algorithm>

#include "../common/common.h"

namespace {

constexpr std::string_view svMARK = "%s";

struct MESSAGE_ROW {
    MESSAGE_ID       eId;
    std::string_view svEnglish;
    std::string_view svGerman;
    std::string_view svBavarian;  // empty: the German text
    std::string_view svFrench;    // empty: the English text
};

// clang-format off
constexpr MESSAGE_ROW asctMessage[] = {
    {MSG_E001,
     "E001-HOSTS   Configuration of %s backup client %s completed with errors.",
     "E001-HOSTS   Konfiguration des %s Clients %s mit Fehler beendet.",
     "E001-HOSTS   Konfiguration vom %s Client %s hod an Fälla g´habt.",
     ""},
    {MSG_E002,
     "E002-HOSTS   There is no access to computer %s: %s",
     "E002-HOSTS   Kein Zugang auf Rechner %s: %s",
     "E002-HOSTS   Koa Zuagang auf´m Rechna %s: %s",
     ""},
    {MSG_E003,
     "E003-HOSTS   Error message: %s",
     "E003-HOSTS   Fehlermeldung: %s",
     "E003-HOSTS   Fälla: %s",
     ""},
    {MSG_E004,
     "E004-HOSTS   Error during access to database  (%s)",
     "E004-HOSTS   Fehler bei Datenbankzugriff (%s)",
     "E004-HOSTS   Fälla beim Dattnbankzugriff  (%s)",
     "E004-HOSTS   Erreur pendant l´accès sur la banque de données (%s)"},
    {MSG_E005,
     "E005-HOSTS   cannot open local file %s to insert QIR velka server computer.",
     "E005-HOSTS   lokale Datei %s kann nicht geöffnet werden um QIR velka Rechner dort einzutragen.",
     "E005-HOSTS   lokale Datei %s ko ned aufgmacht wean um QIR velka Rechna do eizumdrong.",
     "E005-HOSTS   Le fichier local %s ne peut pas être ouvré pour enregistrer le QIR velka-ordinatuer là ."},
    {MSG_E006,
     "E006-HOSTS   Missing parameters for configuration of a client.",
     "E006-HOSTS   Fehlende Parameter für die Konfiguration eines Clients.",
     "E006-HOSTS   Do fäin Paramätta fia de Konfiguration vom Client.",
     ""},
    {MSG_E007,
     "E007-HOSTS   There is still no QIR velka client software installed on computer %s - please do it now.",
     "E007-HOSTS   Auf Rechner %s ist noch keine QIRvelka Client-Software installiert oder konfiguriert - bitte jetzt nachholen",
     "E007-HOSTS   Aufm Rechna %s is no koa QIRvelka Client-Software installiert oda konfiguriert - na machst des hoid jetzad.",
     ""},
    {MSG_E009,
     "E009-HOSTS   Could not resolve hostname [%s]",
     "E009-HOSTS   Rechnername [%s] konnte nicht aufgeloest werden",
     "E009-HOSTS   Rechna [%s] ko ned aufglöst wean",
     ""},
    {MSG_E010,
     "E010-HOSTS   QIR velka client on %s not yet started - for what to do see Day Protocol.",
     "E010-HOSTS   QIR velka Client auf %s noch nicht gestartet - Abhilfe siehe Tagesprotokoll.",
     "E010-HOSTS   QIR velka Client auf %s no ned gstart - Schaug amoi ins Tagesprottokoi.",
     ""},
    {MSG_E011,
     "E011-HOSTS   Missing permit. Execute [vk_setup set_client %s] on client %s",
     "E011-HOSTS   Fehlende Berechtigung. [vk_setup set_client %s] auf dem Client %s ausführen",
     "E011-HOSTS   Fehlende Berechtigung. [vk_setup set_client %s] auf dem Klienten %s ausführen",
     ""},
    {MSG_E012,
     "E012-HOSTS   Backup from %s not possible.",
     "E012-HOSTS   Testsicherung von %s nicht möglich.",
     "E012-HOSTS   Testsicharung vom %s gäd ned. Ja mi leckst!",
     ""},
    {MSG_E013,
     "E013-HOSTS   Backup from %s cannot return to %s - please check ( ping, DNS, local KTRD ).",
     "E013-HOSTS   Testsicherung von %s kommt nicht auf %s zurück - bitte prüfen ( ping, DNS, lokaler KTRD )",
     "E013-HOSTS   Testsicharung vom %s kommt ned auf %s zruck - bittsche briaffn ( ping, DNS, lokaler KTRD )",
     ""},
    {MSG_E020,
     "E020-HOSTS   Client %s is currently not reachable: %s",
     "E020-HOSTS   Rechner %s ist derzeit nicht erreichbar: %s",
     "E020-HOSTS   Rechna %s is zua Zeid ned zum daglanga: %s",
     "E020-HOSTS   En ce moment, l´ordinateur %s n´est pas accessible: %s"},
    {MSG_E021,
     "E021-HOSTS   Update of client %s failed: %s",
     "E021-HOSTS   Aktualisierung des Client %s fehlerhaft: %s",
     "E021-HOSTS   Update des Clienten %s fehlerhaft: %s",
     ""},
    {MSG_E022,
     "E022-HOSTS   Servicepack update of client %s failed: %s",
     "E022-HOSTS   Servicepack Aktualisierung des Client %s fehlerhaft: %s",
     "E022-HOSTS   Servicepack Update des Clienten %s fehlerhaft: %s",
     ""},
    {MSG_I001,
     "I001-HOSTS   Configuration of client %s on platform %s started.",
     "I001-HOSTS   Konfiguration des Rechners %s als QIR velka-Client Typ %s gestartet.",
     "I001-HOSTS   Konfiguration vom Rechna %s ois QIR velka-Client Typ %s ogstart.",
     "I001-HOSTS   Configuration d´un client de %s est démarré."},
    {MSG_I002,
     "I002-HOSTS   On the new client QTC-version %s is installed.",
     "I002-HOSTS   Auf dem neuen Client ist QTC-Version %s installiert.",
     "I002-HOSTS   Aufm Client is QTC-Version %s installiad.",
     ""},
    {MSG_I003,
     "I003-HOSTS   Configuration of %s backup client %s completed successfully.",
     "I003-HOSTS   Konfiguration des %s Clients %s erfolgreich beendet.",
     "I003-HOSTS   Konfiguration vom %s Client %s hod guad hi g´haun.",
     ""},
    {MSG_I004,
     "I004-HOSTS   Mode: %s   Address: %s  Distribution: %s",
     "I004-HOSTS   Modus: %s   Adresse: %s  Derivat: %s",
     "I004-HOSTS   Modus: %s   D´Adress: %s  S´Derivat: %s",
     ""},
    {MSG_I005,
     "I005-HOSTS   QIR velka client is already installed on %s, access is valid",
     "I005-HOSTS   Auf dem Rechner %s ist QIR velka-Client Software installiert - Kontakt konnte hergestellt werden.",
     "I005-HOSTS   Auf´m Rechna %s is QIR velka-Client Software installiert - An Kontakt hod ma herstäin kenna.",
     "I005-HOSTS   En ordinateur %s le logiciel de QIR velka-client est installé - le contact a eté généré."},
    {MSG_I006,
     "I006-HOSTS   At first please install QIR velka client-software on %s.",
     "I006-HOSTS   Zuerst bitte die QIR velka Client Software vom Kit auf %s installieren.",
     "I006-HOSTS   Zerscht amoi bitte die QIR velka ClientSoftware vom Kit auf %s installiern.",
     ""},
    {MSG_I007,
     "I007-HOSTS   If already installed please start it there with ´vk_main start´.",
     "I007-HOSTS   Falls bereits installiert bitte mit ´vk_main start´ dort starten.",
     "I007-HOSTS   Wenn´s schon installiad is, nachad bittsche mit ´vk_main start´ nei startn.",
     ""},
    {MSG_I008,
     "I008-HOSTS   User deleted client %s (id=%s).",
     "I008-HOSTS   Benutzer löschte Client %s (Id=%s).",
     "I008-HOSTS   Benutza hod´n Client %s (Id=%s) glöscht.",
     ""},
    {MSG_I009,
     "I009-HOSTS   Testing QTC-connection to client %s.",
     "I009-HOSTS   Teste QTC-Verbindung zu Client %s.",
     "I009-HOSTS   Test vo da QTC-Vabindung zum Client %s.",
     ""},
    {MSG_I010,
     "I010-HOSTS   Testing backup-connection from client %s.",
     "I010-HOSTS   Teste Sicherungsverbindung vom Client %s.",
     "I010-HOSTS   Test vo da Backup-Verbindung zum Client %s.",
     ""},
    {MSG_I012,
     "I012-HOSTS   Client %s added",
     "I012-HOSTS   Client %s aufgenommen",
     "I012-HOSTS   Client %s aufgnomma",
     ""},
    {MSG_I013,
     "I013-HOSTS   Client %s successfully updated: %s",
     "I013-HOSTS   Client %s erfolgreich aktualisiert: %s",
     "I013-HOSTS   Client %s erfolgreich up-gedated: %s",
     ""},
    {MSG_I014,
     "I014-HOSTS   Client %s reachable over proxy",
     "I014-HOSTS   Client %s über Proxy erreichbar",
     "",
     ""},
    {MSG_I015,
     "I015-HOSTS   Client %s configured with access mode 'VIRTUAL'. Remote access not possible.",
     "I015-HOSTS   Client %s mit Zugriffsart 'VIRTUAL' konfiguriert. Kein Remotezugriff möglich.",
     "",
     ""},
    {MSG_I016,
     "I016-HOSTS   Servicepack successfully applied to Client %s: %s",
     "I016-HOSTS   Servicepack erfolgreich auf Client %s eingespielt: %s",
     "",
     ""},
    {MSG_W003,
     "W003-HOSTS   Computer %s is not yet configured in QIR velka´s database.",
     "W003-HOSTS   Rechner %s ist noch nicht in der QIR velka Datenbank konfiguriert.",
     "W003-HOSTS   Rechner %s is no ned in da QIR velka Dattnbank konfiguriad.",
     ""},
    {MSG_W004,
     "W004-HOSTS   A restart is required to complete the update of client %s. %s",
     "W004-HOSTS   Um die Aktualisierung des Clients %s abzuschliessen ist ein Neustart erforderlich. %s",
     "W004-HOSTS   A Neistart vom Clienten %s muas sei um an Update featig zum macha. %s",
     ""},
    {MSG_W005,
     "W005-HOSTS   A restart is required to complete the servicepack update of client %s. %s",
     "W005-HOSTS   Um die Servicepack Aktualisierung des Client %s abzuschliessen ist ein Neustart erforderlich. %s",
     "W005-HOSTS   A Neistart vom Clienten %s muas sei um an Servicepack Update featig zum macha. %s",
     ""},
    {MSG_W006,
     "W006-HOSTS   Update of client %s finished successfully, but access check failed: %s",
     "W006-HOSTS   Aktualisierung des Client %s war erfolgreich, aber der Client ist nicht erreichbar: %s",
     "W006-HOSTS   Update des Clienten %s war erfolgreich, aber der Client ist nicht erreichbar: %s",
     ""},
    {MSG_W007,
     "W007-HOSTS   Servicepack update of client %s finished successfully, but access check failed: %s",
     "W007-HOSTS   Servicepack Aktualisierung des Client %s war erfolgreich, aber der Client ist nicht erreichbar: %s",
     "W007-HOSTS   Servicepack Update des Clienten %s war erfolgreich, aber der Client ist nicht erreichbar: %s",
     ""},
};
// clang-format on

constexpr size_t uMARKS(std::string_view svText)
{
    size_t uCount = 0;
    for (size_t u = svText.find(svMARK); u != svText.npos;
         u = svText.find(svMARK, u + svMARK.size()))
        ++uCount;
    return uCount;
}

constexpr bool bROWS_ARE_IN_ORDER()
{
    if (std::size(asctMessage) != MESSAGE_COUNT) return false;
    for (size_t u = 0; u < std::size(asctMessage); ++u)
        if (static_cast<size_t>(asctMessage[u].eId) != u) return false;
    return true;
}

constexpr bool bMARKS_FIT()
{
    for (const MESSAGE_ROW& row : asctMessage) {
        const size_t uMost = uMARKS(row.svEnglish);
        if (uMARKS(row.svGerman) > uMost || uMARKS(row.svBavarian) > uMost ||
            uMARKS(row.svFrench) > uMost)
            return false;
    }
    return true;
}

static_assert(bROWS_ARE_IN_ORDER(), "one row for each identifier, in its order");
static_assert(bMARKS_FIT(), "no text may want more values than the English one");

/* Messages whose last value comes from another program or a library. */
bool bENDS_WITH_FOREIGN(MESSAGE_ID eId)
{
    constexpr MESSAGE_ID aeForeign[] = {MSG_E002, MSG_E003, MSG_E004, MSG_E020, MSG_E021,
                                        MSG_E022, MSG_W004, MSG_W005, MSG_W006, MSG_W007};
    return std::find(std::begin(aeForeign), std::end(aeForeign), eId) != std::end(aeForeign);
}

}  // namespace

std::string_view svMESSAGE_TEXT(MESSAGE_ID eId, LANGUAGES eLanguage)
{
    const MESSAGE_ROW& row = asctMessage[eId];
    switch (eLanguage) {
        case LANG_DE:
            return row.svGerman;
        case LANG_BY:
            return row.svBavarian.empty() ? row.svGerman : row.svBavarian;
        case LANG_FR:
            return row.svFrench.empty() ? row.svEnglish : row.svFrench;
        default:
            return row.svEnglish;
    }
}

std::string sMESSAGE(MESSAGE_ID eId, std::initializer_list<std::string_view> values)
{
    std::string_view svText = svMESSAGE_TEXT(eId, eLang);
    std::string      sMessage;
    for (std::string_view svValue : values) {
        const size_t uMark = svText.find(svMARK);
        if (uMark == svText.npos) break;
        sMessage.append(svText.substr(0, uMark)).append(svValue);
        svText.remove_prefix(uMark + svMARK.size());
    }
    return sMessage.append(svText);
}

std::string sMESSAGE_FITTED(size_t uSize, MESSAGE_ID eId, std::string_view svValue)
{
    const size_t      uAround = sMESSAGE(eId, {""}).size();
    const size_t      uRoom = uAround < uSize ? uSize - 1 - uAround : 0;
    const std::string sMessage = sMESSAGE(eId, {svTEXT_CUT(svValue, uRoom)});
    return std::string(svTEXT_CUT(sMessage, uSize - 1));
}

int iMESSAGE_FOREIGN(std::string_view svText, size_t& uBegin, size_t& uEnd)
{
    for (const MESSAGE_ROW& row : asctMessage) {
        std::string_view svForm = svMESSAGE_TEXT(row.eId, eLang);
        const size_t     uMark = svForm.find(svMARK);
        if (!svText.starts_with(svForm.substr(0, std::min(uMark, svText.size())))) continue;
        uBegin = uEnd = svText.size();
        if (!bENDS_WITH_FOREIGN(row.eId)) return 1;
        uBegin = uMark;
        const size_t uLast = svForm.rfind(svMARK);
        // Between a first value, which may hold anything, and the last one.
        if (uLast != uMark) {
            const std::string_view svBetween =
                svForm.substr(uMark + svMARK.size(), uLast - uMark - svMARK.size());
            const size_t uFound = svText.find(svBetween, uMark);
            if (uFound != svText.npos) uBegin = uFound + svBetween.size();
        }
        const std::string_view svEnding = svForm.substr(uLast + svMARK.size());
        if (svText.ends_with(svEnding)) uEnd = std::max(uBegin, svText.size() - svEnding.size());
        return 1;
    }
    return 0;
}

void PROT_MESSAGE(MESSAGE_ID eId, std::initializer_list<std::string_view> values)
{
    FPROT(0, sMESSAGE(eId, values).c_str());
}

void ANNOUNCE_MESSAGE(MESSAGE_ID eId, std::initializer_list<std::string_view> values)
{
    char szText[256];
    iTEXT_SET(szText, sMESSAGE(eId, values));
    FPROT(0, szText);
    info('M', 0, szText);
}
