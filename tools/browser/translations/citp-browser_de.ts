<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>Browser::Adapters</name>
    <message>
        <source>chosen</source>
        <translation>gewählt</translation>
    </message>
    <message>
        <source>first adapter with an address in 2.0.0.0/8</source>
        <translation>erster Adapter mit einer Adresse in 2.0.0.0/8</translation>
    </message>
    <message>
        <source>first adapter with an address in 10.0.0.0/8</source>
        <translation>erster Adapter mit einer Adresse in 10.0.0.0/8</translation>
    </message>
    <message>
        <source>first adapter with an address</source>
        <translation>erster Adapter mit einer Adresse</translation>
    </message>
    <message>
        <source>no other adapter is up with multicast and an address</source>
        <translation>kein anderer Adapter ist aktiv und hat Multicast und eine Adresse</translation>
    </message>
    <message>
        <source>no adapter has an address</source>
        <translation>kein Adapter hat eine Adresse</translation>
    </message>
    <message>
        <source>it is chosen, and no other takes its place</source>
        <translation>er ist gewählt, und kein anderer tritt an seine Stelle</translation>
    </message>
    <message>
        <source>missing</source>
        <translation>fehlt</translation>
    </message>
    <message>
        <source>no address</source>
        <translation>keine Adresse</translation>
    </message>
    <message>
        <source>link down</source>
        <translation>keine Verbindung</translation>
    </message>
    <message>
        <source>%1 is down</source>
        <translation>%1 ist nicht aktiv</translation>
    </message>
    <message>
        <source>%1 (%2)</source>
        <translation>%1 (%2)</translation>
    </message>
    <message>
        <source>%1 (%2), down</source>
        <translation>%1 (%2), nicht aktiv</translation>
    </message>
</context>
<context>
    <name>Browser::ElementDelegate</name>
    <message>
        <source>new</source>
        <translation>neu</translation>
    </message>
    <message>
        <source>not loaded</source>
        <translation>nicht geladen</translation>
    </message>
    <message>
        <source>loading…</source>
        <translation>wird geladen …</translation>
    </message>
</context>
<context>
    <name>Browser::ElementModel</name>
    <message>
        <source>%1×%2</source>
        <translation>%1×%2</translation>
    </message>
    <message>
        <source>Parameters: %1</source>
        <translation>Parameter: %1</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Number</source>
        <translation>Nummer</translation>
    </message>
    <message>
        <source>Library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>DMX value</source>
        <translation>DMX-Wert</translation>
    </message>
    <message>
        <source>DMX values</source>
        <translation>DMX-Werte</translation>
    </message>
    <message>
        <source>%1–%2</source>
        <translation>%1–%2</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Größe</translation>
    </message>
    <message>
        <source>%1 × %2 pixels</source>
        <translation>%1 × %2 Pixel</translation>
    </message>
    <message>
        <source>Length (h:min:s.frames)</source>
        <translation>Länge (h:min:s.Bilder)</translation>
    </message>
    <message>
        <source>Frames</source>
        <translation>Bilder</translation>
    </message>
    <message>
        <source>Frame rate</source>
        <translation>Bildrate</translation>
    </message>
    <message>
        <source>%1 frames per second</source>
        <translation>%1 Bilder pro Sekunde</translation>
    </message>
    <message>
        <source>Timestamp</source>
        <translation>Zeitstempel</translation>
    </message>
    <message>
        <source>Parameters</source>
        <translation>Parameter</translation>
    </message>
    <message>
        <source>none</source>
        <translation>keine</translation>
    </message>
    <message>
        <source>Serial number</source>
        <translation>Seriennummer</translation>
    </message>
</context>
<context>
    <name>Browser::Export</name>
    <message>
        <source>%1 lists more than %2 elements; export single libraries.</source>
        <translation>%1 nennt mehr als %2 Elemente; exportieren Sie einzelne Bibliotheken.</translation>
    </message>
    <message>
        <source>%1 was lost.</source>
        <translation>%1 ist verloren gegangen.</translation>
    </message>
    <message>
        <source>The pages could not be written to %1: %2.</source>
        <translation>Die Seiten konnten nicht nach %1 geschrieben werden: %2.</translation>
    </message>
    <message>
        <source>There are no elements.</source>
        <translation>Es gibt keine Elemente.</translation>
    </message>
    <message>
        <source>%1 of %2 pictures were written to %3.</source>
        <translation>%1 von %2 Bildern wurden nach %3 geschrieben.</translation>
    </message>
    <message>
        <source>Lists that the server did not send: %1</source>
        <translation>Listen, die der Server nicht gesendet hat: %1</translation>
    </message>
    <message>
        <source>Loading the lists…</source>
        <translation>Die Listen werden geladen …</translation>
    </message>
    <message>
        <source>&amp;Cancel</source>
        <translation>&amp;Abbrechen</translation>
    </message>
    <message>
        <source>Pictures: %1 of %2</source>
        <translation>Bilder: %1 von %2</translation>
    </message>
    <message>
        <source>Export as pages</source>
        <translation>Als Seiten exportieren</translation>
    </message>
    <message>
        <source>In quiet mode nothing is requested ahead. Switch it off for the export.</source>
        <translation>Im Ruhemodus wird nichts im Voraus angefragt. Schalten Sie ihn für den Export aus.</translation>
    </message>
</context>
<context>
    <name>Browser::HelpWindow</name>
    <message>
        <source>Guide of the CITP Browser</source>
        <translation>Anleitung zum CITP-Browser</translation>
    </message>
    <message>
        <source>The guide is not installed: there is no %1.</source>
        <translation>Die Anleitung ist nicht installiert: %1 fehlt.</translation>
    </message>
</context>
<context>
    <name>Browser::LayerModel</name>
    <message>
        <source>playing</source>
        <translation>läuft</translation>
    </message>
    <message>
        <source>backwards</source>
        <translation>rückwärts</translation>
    </message>
    <message>
        <source>looping</source>
        <translation>Schleife</translation>
    </message>
    <message>
        <source>bouncing</source>
        <translation>hin und her</translation>
    </message>
    <message>
        <source>random</source>
        <translation>zufällig</translation>
    </message>
    <message>
        <source>paused</source>
        <translation>angehalten</translation>
    </message>
    <message>
        <source>none</source>
        <translation>keine</translation>
    </message>
    <message>
        <source>%1 s old</source>
        <translation>%1 s alt</translation>
    </message>
    <message>
        <source>%1 / %2</source>
        <translation>%1 / %2</translation>
    </message>
    <message>
        <source>Layer</source>
        <translation>Ebene</translation>
    </message>
    <message>
        <source>Picture</source>
        <translation>Bild</translation>
    </message>
    <message>
        <source>Element</source>
        <translation>Element</translation>
    </message>
    <message>
        <source>Position (h:min:s.frames)</source>
        <translation>Position (h:min:s.Bilder)</translation>
    </message>
    <message>
        <source>fps</source>
        <translation>Bilder/s</translation>
    </message>
    <message>
        <source>Library / no.</source>
        <translation>Bibliothek / Nr.</translation>
    </message>
    <message>
        <source>Output</source>
        <translation>Ausgang</translation>
    </message>
    <message>
        <source>Flags</source>
        <translation>Zustand</translation>
    </message>
</context>
<context>
    <name>Browser::LibraryModel</name>
    <message>
        <source>Media</source>
        <translation>Medien</translation>
    </message>
    <message>
        <source>Effects</source>
        <translation>Effekte</translation>
    </message>
    <message>
        <source>Generic</source>
        <translation>Allgemein</translation>
    </message>
    <message>
        <source>Generic (type %1)</source>
        <translation>Allgemein (Typ %1)</translation>
    </message>
    <message>
        <source>%1 (none)</source>
        <translation>%1 (keine)</translation>
    </message>
    <message>
        <source>%1 (loading…)</source>
        <translation>%1 (wird geladen …)</translation>
    </message>
    <message>
        <source>Library %1</source>
        <translation>Bibliothek %1</translation>
    </message>
    <message>
        <source>DMX %1–%2</source>
        <translation>DMX %1–%2</translation>
    </message>
    <message>
        <source>Elements: %1</source>
        <translation>Elemente: %1</translation>
    </message>
    <message>
        <source>Sub-libraries: %1</source>
        <translation>Unterbibliotheken: %1</translation>
    </message>
    <message>
        <source>Library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>Elements</source>
        <translation>Elemente</translation>
    </message>
</context>
<context>
    <name>Browser::LogModel</name>
    <message>
        <source>lines dropped because too many arrived at a time: %1</source>
        <translation>Zeilen, die fehlen, weil zu viele auf einmal kamen: %1</translation>
    </message>
    <message>
        <source>traffic</source>
        <translation>Verkehr</translation>
    </message>
    <message>
        <source>state</source>
        <translation>Zustand</translation>
    </message>
    <message>
        <source>warning</source>
        <translation>Warnung</translation>
    </message>
    <message>
        <source>failure</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>critical</source>
        <translation>kritisch</translation>
    </message>
    <message>
        <source>Time</source>
        <translation>Zeit</translation>
    </message>
    <message>
        <source>Level</source>
        <translation>Stufe</translation>
    </message>
    <message>
        <source>Context</source>
        <translation>Kontext</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Server</translation>
    </message>
    <message>
        <source>Text</source>
        <translation>Text</translation>
    </message>
</context>
<context>
    <name>Browser::LogPane</name>
    <message>
        <source>&amp;Traffic</source>
        <translation>&amp;Verkehr</translation>
    </message>
    <message>
        <source>All contexts</source>
        <translation>Alle Kontexte</translation>
    </message>
    <message>
        <source>All levels</source>
        <translation>Alle Stufen</translation>
    </message>
    <message>
        <source>State and above</source>
        <translation>Zustand und höher</translation>
    </message>
    <message>
        <source>Warnings and above</source>
        <translation>Warnungen und höher</translation>
    </message>
    <message>
        <source>Failures and above</source>
        <translation>Fehler und höher</translation>
    </message>
    <message>
        <source>Logs every message that is sent or received, with its bytes</source>
        <translation>Protokolliert jede gesendete oder empfangene Nachricht mit ihren Bytes</translation>
    </message>
    <message>
        <source>Context</source>
        <translation>Kontext</translation>
    </message>
    <message>
        <source>Context of the lines that are shown</source>
        <translation>Kontext der gezeigten Zeilen</translation>
    </message>
    <message>
        <source>Level</source>
        <translation>Stufe</translation>
    </message>
    <message>
        <source>Level of the lines that are shown</source>
        <translation>Stufe der gezeigten Zeilen</translation>
    </message>
    <message>
        <source>Cl&amp;ear</source>
        <translation>&amp;Leeren</translation>
    </message>
    <message>
        <source>C&amp;opy</source>
        <translation>K&amp;opie</translation>
    </message>
    <message>
        <source>Copies the lines that are shown, with their headings</source>
        <translation>Kopiert die gezeigten Zeilen mit ihren Überschriften</translation>
    </message>
    <message>
        <source>S&amp;ave…</source>
        <translation>S&amp;ichern</translation>
    </message>
    <message>
        <source>Saves all lines to a file, whole, also those that are not shown</source>
        <translation>Sichert alle Zeilen ungekürzt in eine Datei, auch die nicht gezeigten</translation>
    </message>
    <message>
        <source>Log</source>
        <translation>Protokoll</translation>
    </message>
    <message>
        <source>Save the log</source>
        <translation>Protokoll sichern</translation>
    </message>
    <message>
        <source>Logs (*.log *.txt)</source>
        <translation>Protokolle (*.log *.txt)</translation>
    </message>
    <message>
        <source>The log could not be saved: %1.</source>
        <translation>Das Protokoll konnte nicht gesichert werden: %1.</translation>
    </message>
</context>
<context>
    <name>Browser::MainWindow</name>
    <message>
        <source>CITP Browser</source>
        <translation>CITP-Browser</translation>
    </message>
    <message>
        <source>Choose a server on the left.</source>
        <translation>Wählen Sie links einen Server.</translation>
    </message>
    <message>
        <source>No network adapter to listen on: %1.
The button in the lower right corner selects another.</source>
        <translation>Kein Netzwerkadapter zum Empfangen: %1.
Der Knopf unten rechts wählt einen anderen.</translation>
    </message>
    <message>
        <source>%1: %2; %3</source>
        <comment>adapter, what is wrong, and why it is used</comment>
        <translation>%1: %2; %3</translation>
    </message>
    <message>
        <source>No media server found on %1 (%2) yet.
Servers announce themselves about once a second. If none appears, check the cable, the adapter in the lower right corner and the log.</source>
        <translation>Noch kein Medienserver an %1 (%2) gefunden.
Server melden sich etwa einmal pro Sekunde. Erscheint keiner, prüfen Sie das Kabel, den Adapter unten rechts und das Protokoll.</translation>
    </message>
    <message>
        <source>Loading the elements of the library…</source>
        <translation>Die Elemente der Bibliothek werden geladen …</translation>
    </message>
    <message>
        <source>The elements could not be loaded: %1.
Press F5 to try again.</source>
        <translation>Die Elemente konnten nicht geladen werden: %1.
F5 versucht es erneut.</translation>
    </message>
    <message>
        <source>This library has no elements.</source>
        <translation>Diese Bibliothek hat keine Elemente.</translation>
    </message>
    <message>
        <source>%1 is not connected. Its content is loaded when it connects.</source>
        <translation>%1 ist nicht verbunden. Der Inhalt wird geladen, sobald die Verbindung steht.</translation>
    </message>
    <message>
        <source>Choose a library to see its elements.</source>
        <translation>Wählen Sie eine Bibliothek, um ihre Elemente zu sehen.</translation>
    </message>
    <message>
        <source>No server chosen</source>
        <translation>Kein Server gewählt</translation>
    </message>
    <message>
        <source>%1 › %2</source>
        <comment>server, and path of the library</comment>
        <translation>%1 › %2</translation>
    </message>
    <message>
        <source>not connected</source>
        <translation>nicht verbunden</translation>
    </message>
    <message>
        <source>Elements: %1</source>
        <translation>Elemente: %1</translation>
    </message>
    <message>
        <source> – %1 of %2 pictures failed</source>
        <translation> – %1 von %2 Bildern fehlgeschlagen</translation>
    </message>
    <message>
        <source>Save the picture</source>
        <translation>Bild sichern</translation>
    </message>
    <message>
        <source>Pictures (*.png *.jpg *.jpeg)</source>
        <translation>Bilder (*.png *.jpg *.jpeg)</translation>
    </message>
    <message>
        <source>The picture could not be saved: %1.</source>
        <translation>Das Bild konnte nicht gesichert werden: %1.</translation>
    </message>
    <message>
        <source>The library does not have this element any more.</source>
        <translation>Die Bibliothek hat dieses Element nicht mehr.</translation>
    </message>
    <message>
        <source>No layer plays this element.</source>
        <translation>Keine Ebene spielt dieses Element.</translation>
    </message>
    <message>
        <source>loading…</source>
        <translation>wird geladen …</translation>
    </message>
    <message>
        <source>No picture: %1</source>
        <translation>Kein Bild: %1</translation>
    </message>
    <message>
        <source>not loaded</source>
        <translation>nicht geladen</translation>
    </message>
    <message>
        <source>&amp;Automatic</source>
        <translation>&amp;Automatisch</translation>
    </message>
    <message>
        <source>%1 (missing)</source>
        <translation>%1 (fehlt)</translation>
    </message>
    <message>
        <source>Adapter: none</source>
        <translation>Adapter: keiner</translation>
    </message>
    <message>
        <source>Adapter: %1, %2</source>
        <translation>Adapter: %1, %2</translation>
    </message>
    <message>
        <source>Adapter: %1</source>
        <translation>Adapter: %1</translation>
    </message>
    <message>
        <source>About the CITP Browser</source>
        <translation>Über den CITP-Browser</translation>
    </message>
    <message>
        <source>CITP Browser %1</source>
        <translation>CITP-Browser %1</translation>
    </message>
    <message>
        <source>Library: %1
Qt: %2</source>
        <translation>Bibliothek: %1
Qt: %2</translation>
    </message>
    <message>
        <source>No servers</source>
        <translation>Keine Server</translation>
    </message>
    <message>
        <source>Servers up: %1 of %2</source>
        <translation>Server verbunden: %1 von %2</translation>
    </message>
    <message>
        <source>▾ Lost servers: %1</source>
        <translation>▾ Verlorene Server: %1</translation>
    </message>
    <message>
        <source>▸ Lost servers: %1</source>
        <translation>▸ Verlorene Server: %1</translation>
    </message>
    <message>
        <source>&amp;Copy the table</source>
        <translation>Tabelle &amp;kopieren</translation>
    </message>
    <message>
        <source>Only with &amp;problems</source>
        <translation>Nur mit &amp;Problemen</translation>
    </message>
    <message>
        <source>Shows only servers that are failing, lost or silent</source>
        <translation>Zeigt nur Server, die scheitern, verloren oder stumm sind</translation>
    </message>
    <message>
        <source>Shows or hides the servers that are lost</source>
        <translation>Zeigt oder verbirgt die verlorenen Server</translation>
    </message>
    <message>
        <source>Servers</source>
        <translation>Server</translation>
    </message>
    <message>
        <source>&amp;Copy the address</source>
        <translation>Adresse &amp;kopieren</translation>
    </message>
    <message>
        <source>Filter by name (Ctrl+F)</source>
        <translation>Nach Namen filtern (Strg+F)</translation>
    </message>
    <message>
        <source>Shows the loaded libraries whose name contains this text</source>
        <translation>Zeigt die geladenen Bibliotheken, deren Name diesen Text enthält</translation>
    </message>
    <message>
        <source>Filter of the libraries</source>
        <translation>Filter der Bibliotheken</translation>
    </message>
    <message>
        <source>No loaded library has this in its name.</source>
        <translation>Keine geladene Bibliothek hat dies im Namen.</translation>
    </message>
    <message>
        <source>Libraries</source>
        <translation>Bibliotheken</translation>
    </message>
    <message>
        <source>Pictures loaded</source>
        <translation>Geladene Bilder</translation>
    </message>
    <message>
        <source>%v of %m pictures</source>
        <translation>%v von %m Bildern</translation>
    </message>
    <message>
        <source>&amp;Cancel</source>
        <translation>Abb&amp;rechen</translation>
    </message>
    <message>
        <source>Cancels loading the pictures of this library (Esc)</source>
        <translation>Bricht das Laden der Bilder dieser Bibliothek ab (Esc)</translation>
    </message>
    <message>
        <source>Size of the tiles</source>
        <translation>Größe der Kacheln</translation>
    </message>
    <message>
        <source>Size of the tiles (Ctrl and the mouse wheel, Ctrl++ and Ctrl+-)</source>
        <translation>Größe der Kacheln (Strg und Mausrad, Strg++ und Strg+-)</translation>
    </message>
    <message>
        <source>Elements</source>
        <translation>Elemente</translation>
    </message>
    <message>
        <source>&amp;Copy the picture</source>
        <translation>Bild &amp;kopieren</translation>
    </message>
    <message>
        <source>&amp;Save the picture…</source>
        <translation>Bild &amp;sichern …</translation>
    </message>
    <message>
        <source>Copy the &amp;DMX value</source>
        <translation>&amp;DMX-Wert kopieren</translation>
    </message>
    <message>
        <source>Show the la&amp;yer that plays it</source>
        <translation>&amp;Ebene zeigen, die es spielt</translation>
    </message>
    <message>
        <source>&amp;Load the picture again</source>
        <translation>Bild neu &amp;laden</translation>
    </message>
    <message>
        <source>Element</source>
        <translation>Element</translation>
    </message>
    <message>
        <source>Layers</source>
        <translation>Ebenen</translation>
    </message>
    <message>
        <source>Show the &amp;element</source>
        <translation>&amp;Element zeigen</translation>
    </message>
    <message>
        <source>Layers (%1)</source>
        <comment>how old their status is</comment>
        <translation>Ebenen (%1)</translation>
    </message>
    <message>
        <source>Fixture patch</source>
        <translation>Gerätepatch</translation>
    </message>
    <message>
        <source>&amp;Sort by this column</source>
        <translation>Nach dieser &amp;Spalte sortieren</translation>
    </message>
    <message>
        <source>Layer</source>
        <translation>Ebene</translation>
    </message>
    <message>
        <source>Position (h:min:s.frames)</source>
        <translation>Position (h:min:s.Bilder)</translation>
    </message>
    <message>
        <source>000 fps</source>
        <translation>000 Bilder/s</translation>
    </message>
    <message>
        <source>Output</source>
        <translation>Ausgang</translation>
    </message>
    <message>
        <source>playing, backwards</source>
        <translation>läuft, rückwärts</translation>
    </message>
    <message>
        <source>Manufacturer of fixtures</source>
        <translation>Hersteller der Geräte</translation>
    </message>
    <message>
        <source>Universe</source>
        <translation>Universum</translation>
    </message>
    <message>
        <source>Log</source>
        <translation>Protokoll</translation>
    </message>
    <message>
        <source>Search</source>
        <translation>Suche</translation>
    </message>
    <message>
        <source>&amp;File</source>
        <translation>&amp;Datei</translation>
    </message>
    <message>
        <source>&amp;Settings…</source>
        <translation>&amp;Einstellungen …</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Beenden</translation>
    </message>
    <message>
        <source>&amp;Server</source>
        <translation>&amp;Server</translation>
    </message>
    <message>
        <source>&amp;Reload</source>
        <translation>&amp;Neu laden</translation>
    </message>
    <message>
        <source>&amp;Cancel loading pictures</source>
        <translation>Laden der Bilder &amp;abbrechen</translation>
    </message>
    <message>
        <source>Load &amp;failed pictures again</source>
        <translation>&amp;Fehlgeschlagene Bilder neu laden</translation>
    </message>
    <message>
        <source>&amp;Quiet mode</source>
        <translation>&amp;Ruhemodus</translation>
    </message>
    <message>
        <source>Requests only what is opened or looked at</source>
        <translation>Fragt nur an, was geöffnet oder betrachtet wird</translation>
    </message>
    <message>
        <source>Network &amp;adapter</source>
        <translation>Netzwerka&amp;dapter</translation>
    </message>
    <message>
        <source>&amp;View</source>
        <translation>&amp;Ansicht</translation>
    </message>
    <message>
        <source>&amp;Larger tiles</source>
        <translation>&amp;Größere Kacheln</translation>
    </message>
    <message>
        <source>S&amp;maller tiles</source>
        <translation>&amp;Kleinere Kacheln</translation>
    </message>
    <message>
        <source>&amp;Go</source>
        <translation>&amp;Gehe zu</translation>
    </message>
    <message>
        <source>&amp;Servers</source>
        <translation>&amp;Server</translation>
    </message>
    <message>
        <source>&amp;Libraries</source>
        <translation>&amp;Bibliotheken</translation>
    </message>
    <message>
        <source>&amp;Elements</source>
        <translation>&amp;Elemente</translation>
    </message>
    <message>
        <source>La&amp;yers</source>
        <translation>Ebe&amp;nen</translation>
    </message>
    <message>
        <source>Fixture &amp;patch</source>
        <translation>Geräte&amp;patch</translation>
    </message>
    <message>
        <source>L&amp;og</source>
        <translation>Pr&amp;otokoll</translation>
    </message>
    <message>
        <source>&amp;Reset layout</source>
        <translation>&amp;Anordnung zurücksetzen</translation>
    </message>
    <message>
        <source>Search in &amp;all servers</source>
        <translation>Suche in &amp;allen Servern</translation>
    </message>
    <message>
        <source>&amp;Filter the libraries</source>
        <translation>Bibliotheken &amp;filtern</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Hilfe</translation>
    </message>
    <message>
        <source>&amp;Guide</source>
        <translation>&amp;Anleitung</translation>
    </message>
    <message>
        <source>&amp;About the CITP Browser</source>
        <translation>&amp;Über den CITP-Browser</translation>
    </message>
    <message>
        <source>Quiet mode</source>
        <translation>Ruhemodus</translation>
    </message>
    <message>
        <source>Requests only what is opened or looked at. Click to load everything again (Ctrl+M).</source>
        <translation>Fragt nur an, was geöffnet oder betrachtet wird. Ein Klick lädt wieder alles (Strg+M).</translation>
    </message>
    <message>
        <source>Choose a server that is up.</source>
        <translation>Wählen Sie einen Server, der verbunden ist.</translation>
    </message>
    <message>
        <source>Choose a library of a server that is up.</source>
        <translation>Wählen Sie eine Bibliothek eines Servers, der verbunden ist.</translation>
    </message>
    <message>
        <source>&amp;Export the server as pages…</source>
        <translation>&amp;Server als Seiten exportieren …</translation>
    </message>
    <message>
        <source>&amp;Export the library as pages…</source>
        <translation>Bibliothek als Seiten &amp;exportieren …</translation>
    </message>
    <message>
        <source>Export the &amp;library as pages…</source>
        <translation>B&amp;ibliothek als Seiten exportieren …</translation>
    </message>
</context>
<context>
    <name>Browser::PatchModel</name>
    <message>
        <source>Fixture</source>
        <translation>Gerät</translation>
    </message>
    <message>
        <source>Universe</source>
        <translation>Universum</translation>
    </message>
    <message>
        <source>Channel</source>
        <translation>Kanal</translation>
    </message>
    <message>
        <source>Channels</source>
        <translation>Kanäle</translation>
    </message>
    <message>
        <source>Make</source>
        <translation>Hersteller</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
</context>
<context>
    <name>Browser::PictureStore</name>
    <message>
        <source>server lost</source>
        <translation>Server verloren</translation>
    </message>
</context>
<context>
    <name>Browser::PreviewPane</name>
    <message>
        <source>Picture of the element</source>
        <translation>Bild des Elements</translation>
    </message>
    <message>
        <source>Fields of the element</source>
        <translation>Felder des Elements</translation>
    </message>
    <message>
        <source>&amp;Copy the value</source>
        <translation>Wert &amp;kopieren</translation>
    </message>
    <message>
        <source>Choose an element to see it here.</source>
        <translation>Wählen Sie ein Element, um es hier zu sehen.</translation>
    </message>
</context>
<context>
    <name>Browser::SearchModel</name>
    <message>
        <source>Searches the libraries and elements of all servers, by name and number.</source>
        <translation>Durchsucht die Bibliotheken und Elemente aller Server nach Namen und Nummer.</translation>
    </message>
    <message>
        <source>Hits: %1</source>
        <translation>Treffer: %1</translation>
    </message>
    <message>
        <source>The first %1 hits</source>
        <translation>Die ersten %1 Treffer</translation>
    </message>
    <message>
        <source>quiet mode: only what is loaded is searched</source>
        <translation>Ruhemodus: nur Geladenes wird durchsucht</translation>
    </message>
    <message>
        <source>loading…</source>
        <translation>wird geladen …</translation>
    </message>
    <message>
        <source>the servers hold more than is searched</source>
        <translation>die Server enthalten mehr, als durchsucht wird</translation>
    </message>
    <message>
        <source>too many libraries, not searched: %1</source>
        <translation>zu viele Bibliotheken, nicht durchsucht: %1</translation>
    </message>
    <message>
        <source>too many libraries, not searched: %1 and %2 more</source>
        <translation>zu viele Bibliotheken, nicht durchsucht: %1 und %2 weitere</translation>
    </message>
    <message>
        <source>library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Number</source>
        <translation>Nummer</translation>
    </message>
    <message>
        <source>Kind</source>
        <translation>Art</translation>
    </message>
    <message>
        <source>Library</source>
        <translation>Bibliothek</translation>
    </message>
    <message>
        <source>Server</source>
        <translation>Server</translation>
    </message>
</context>
<context>
    <name>Browser::SearchPane</name>
    <message>
        <source>Name or number (Ctrl+Shift+F)</source>
        <translation>Name oder Nummer (Strg+Umschalt+F)</translation>
    </message>
    <message>
        <source>Search in all servers</source>
        <translation>Suche in allen Servern</translation>
    </message>
    <message>
        <source>Hits</source>
        <translation>Treffer</translation>
    </message>
</context>
<context>
    <name>Browser::ServerDelegate</name>
    <message>
        <source>%1 · %2</source>
        <comment>state of a server, and its product</comment>
        <translation>%1 · %2</translation>
    </message>
</context>
<context>
    <name>Browser::ServerModel</name>
    <message>
        <source>seen</source>
        <translation>gehört</translation>
    </message>
    <message>
        <source>connecting</source>
        <translation>verbindet</translation>
    </message>
    <message>
        <source>failing</source>
        <translation>scheitert</translation>
    </message>
    <message>
        <source>no sign of life for %1 s</source>
        <translation>seit %1 s kein Lebenszeichen</translation>
    </message>
    <message>
        <source>up</source>
        <translation>verbunden</translation>
    </message>
    <message>
        <source>lost</source>
        <translation>verloren</translation>
    </message>
    <message>
        <source>State: %1</source>
        <translation>Zustand: %1</translation>
    </message>
    <message>
        <source>Address: %1</source>
        <translation>Adresse: %1</translation>
    </message>
    <message>
        <source>Product: %1</source>
        <translation>Produkt: %1</translation>
    </message>
    <message>
        <source>MSEX 1.%1, layers: %2</source>
        <translation>MSEX 1.%1, Ebenen: %2</translation>
    </message>
</context>
<context>
    <name>Browser::SettingsDialog</name>
    <message>
        <source>&amp;Quiet mode</source>
        <translation>&amp;Ruhemodus</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source> s</source>
        <translation> s</translation>
    </message>
    <message>
        <source>no limit</source>
        <translation>keine Grenze</translation>
    </message>
    <message>
        <source> a second</source>
        <translation> pro Sekunde</translation>
    </message>
    <message>
        <source> kB a second</source>
        <translation> kB pro Sekunde</translation>
    </message>
    <message>
        <source> and </source>
        <comment>between two addresses</comment>
        <translation> und </translation>
    </message>
    <message>
        <source>&amp;Timeout:</source>
        <translation>&amp;Zeitgrenze:</translation>
    </message>
    <message>
        <source>A request fails when the server has sent nothing of the kind for this long, twice. A longer time suits slow servers; a shorter one shows sooner that a server hangs.</source>
        <translation>Eine Anfrage scheitert, wenn der Server zweimal so lange nichts dieser Art gesendet hat. Eine längere Zeit passt zu langsamen Servern; eine kürzere zeigt eher, dass ein Server hängt.</translation>
    </message>
    <message>
        <source>&amp;Requests:</source>
        <translation>&amp;Anfragen:</translation>
    </message>
    <message>
        <source>How many requests are sent to all servers together. A limit spares servers that play a show.</source>
        <translation>Wie viele Anfragen an alle Server zusammen gesendet werden. Eine Grenze schont Server, die eine Show spielen.</translation>
    </message>
    <message>
        <source>&amp;Answers:</source>
        <translation>An&amp;tworten:</translation>
    </message>
    <message>
        <source>How much the servers are made to answer, all together. A limit spares a network that the show shares.</source>
        <translation>Wie viel alle Server zusammen antworten sollen. Eine Grenze schont ein Netz, das auch die Show benutzt.</translation>
    </message>
    <message>
        <source>For use during a show: only what you open or look at is requested. Nothing is loaded ahead, and nothing is searched. Ctrl+M switches it in the window.</source>
        <translation>Für den Gebrauch während einer Show: Nur was Sie öffnen oder betrachten, wird angefragt. Nichts wird im Voraus geladen und nichts durchsucht. Strg+M schaltet im Fenster um.</translation>
    </message>
    <message>
        <source>&amp;Groups:</source>
        <translation>&amp;Gruppen:</translation>
    </message>
    <message>
        <source>The multicast addresses on which servers announce themselves. Newer servers may use the second one alone. Takes effect within two seconds; servers that are known stay.</source>
        <translation>Die Multicast-Adressen, auf denen sich Server melden. Neuere Server benutzen möglicherweise nur die zweite. Wirkt innerhalb von zwei Sekunden; bekannte Server bleiben.</translation>
    </message>
</context>
<context>
    <name>Browser::Texts</name>
    <message>
        <source>%1 frames</source>
        <translation>%1 Bilder</translation>
    </message>
</context>
<context>
    <name>CITP::Catalogue</name>
    <message>
        <source>Server %1 sent an odd list of %2: %3 entries were left out</source>
        <translation>Server %1 hat eine fehlerhafte Liste von %2 gesendet: %3 Einträge wurden ausgelassen</translation>
    </message>
    <message>
        <source>Server %1 lists more than %2 libraries: the others are left out</source>
        <translation>Server %1 nennt mehr als %2 Bibliotheken: die übrigen werden ausgelassen</translation>
    </message>
</context>
<context>
    <name>CITP::Directory</name>
    <message>
        <source>Server %1 was lost: %2</source>
        <translation>Server %1 ist verloren gegangen: %2</translation>
    </message>
    <message>
        <source>Server %1 does not come up: %2</source>
        <translation>Server %1 lässt sich nicht verbinden: %2</translation>
    </message>
    <message>
        <source>Server %1 does not announce itself any more</source>
        <translation>Server %1 meldet sich nicht mehr</translation>
    </message>
    <message>
        <source>Server %1 accepts the connection, but does not send its information (SInf)</source>
        <translation>Server %1 nimmt die Verbindung an, sendet aber seine Angaben (SInf) nicht</translation>
    </message>
    <message>
        <source>Server %1 announces itself, but does not accept a connection or does not answer on it</source>
        <translation>Server %1 meldet sich, nimmt aber keine Verbindung an oder antwortet darauf nicht</translation>
    </message>
</context>
<context>
    <name>CITP::Images</name>
    <message>
        <source>%1 bytes are not an RGB8 picture of %2x%3</source>
        <translation>%1 Bytes sind kein RGB8-Bild von %2x%3</translation>
    </message>
    <message>
        <source>%1 scans are too many for a thumbnail</source>
        <translation>%1 Durchgänge sind zu viele für ein Vorschaubild</translation>
    </message>
    <message>
        <source>the picture is cut off</source>
        <translation>das Bild ist abgeschnitten</translation>
    </message>
    <message>
        <source>%1x%2 pixels are too large for a thumbnail</source>
        <translation>%1x%2 Pixel sind zu groß für ein Vorschaubild</translation>
    </message>
    <message>
        <source>%1 bytes are not a %2 picture</source>
        <translation>%1 Bytes sind kein %2-Bild</translation>
    </message>
    <message>
        <source>empty or damaged answer</source>
        <translation>leere oder beschädigte Antwort</translation>
    </message>
    <message>
        <source>unknown format &apos;%1&apos;</source>
        <translation>unbekanntes Format „%1“</translation>
    </message>
</context>
<context>
    <name>CITP::PictureFiles</name>
    <message>
        <source>cannot be renamed</source>
        <translation>lässt sich nicht umbenennen</translation>
    </message>
</context>
<context>
    <name>CITP::Pictures</name>
    <message>
        <source>Pictures cannot be kept on disk: %1</source>
        <translation>Bilder können nicht auf der Platte abgelegt werden: %1</translation>
    </message>
</context>
<context>
    <name>CITP::Reply</name>
    <message>
        <source>Cancelled: server %1, %2</source>
        <translation>Abgebrochen: Server %1, %2</translation>
    </message>
</context>
<context>
    <name>CITP::Requests</name>
    <message>
        <source>its libraries</source>
        <translation>seine Bibliotheken</translation>
    </message>
    <message>
        <source>the libraries below %1</source>
        <translation>die Bibliotheken unter %1</translation>
    </message>
    <message>
        <source>the elements of library %1</source>
        <translation>die Elemente der Bibliothek %1</translation>
    </message>
    <message>
        <source>the picture of library %1</source>
        <translation>das Bild der Bibliothek %1</translation>
    </message>
    <message>
        <source>the picture of element %1 of library %2</source>
        <translation>das Bild des Elements %1 der Bibliothek %2</translation>
    </message>
    <message>
        <source>Server %1 is down</source>
        <translation>Server %1 ist nicht mehr verbunden</translation>
    </message>
    <message>
        <source>Server %1 cannot be asked for library &apos;%2&apos;</source>
        <translation>Server %1 kann nicht nach der Bibliothek „%2“ gefragt werden</translation>
    </message>
    <message>
        <source>: it uses MSEX 1.0, which has top-level libraries only</source>
        <translation>: er benutzt MSEX 1.0, das nur Bibliotheken der obersten Ebene hat</translation>
    </message>
    <message>
        <source>Server %1 cannot be asked for %2 numbers at once</source>
        <translation>Server %1 kann nicht nach %2 Nummern auf einmal gefragt werden</translation>
    </message>
    <message>
        <source>Server %1 has no generic elements: it speaks MSEX 1.0</source>
        <translation>Server %1 hat keine allgemeinen Elemente: er spricht MSEX 1.0</translation>
    </message>
    <message>
        <source>Server %1 can be asked for the picture of one element only</source>
        <translation>Server %1 kann nur nach dem Bild eines einzigen Elements gefragt werden</translation>
    </message>
    <message>
        <source>Server %1 cannot be sent a request</source>
        <translation>Server %1 kann keine Anfrage gesendet werden</translation>
    </message>
    <message>
        <source>the answer is in MSEX 1.%1, which is not supported</source>
        <translation>die Antwort ist in MSEX 1.%1, das nicht unterstützt wird</translation>
    </message>
    <message>
        <source>Server %1 did not send %2: %3</source>
        <translation>Server %1 hat %2 nicht gesendet: %3</translation>
    </message>
    <message>
        <source>its answer has no picture</source>
        <translation>seine Antwort enthält kein Bild</translation>
    </message>
    <message>
        <source>Server %1 did not send %2 within %3 s, asked %4 times</source>
        <translation>Server %1 hat %2 nicht innerhalb von %3 s gesendet, %4-mal gefragt</translation>
    </message>
    <message>
        <source>Server %1 did not send %2: it has not answered for %3 s</source>
        <translation>Server %1 hat %2 nicht gesendet: er hat seit %3 s nicht geantwortet</translation>
    </message>
    <message>
        <source>Server %1 is not up</source>
        <translation>Server %1 ist nicht verbunden</translation>
    </message>
</context>
<context>
    <name>Tools::PictureFile</name>
    <message>
        <source>could not be converted to PNG</source>
        <translation>konnte nicht in PNG umgewandelt werden</translation>
    </message>
</context>
<context>
    <name>Tools::PicturePages</name>
    <message>
        <source>Library %1</source>
        <translation>Bibliothek %1</translation>
    </message>
    <message>
        <source>Library %1 of type %2</source>
        <translation>Bibliothek %1 vom Typ %2</translation>
    </message>
    <message>
        <source>en</source>
        <comment>language of the pages</comment>
        <translation>de</translation>
    </message>
    <message>
        <source>it is a link</source>
        <translation>es ist eine Verknüpfung</translation>
    </message>
    <message>
        <source>it is not a folder</source>
        <translation>es ist kein Ordner</translation>
    </message>
    <message>
        <source>it is not empty</source>
        <translation>er ist nicht leer</translation>
    </message>
    <message>
        <source>it is a mount point; name a folder in it</source>
        <translation>er ist ein Einhängepunkt; nennen Sie einen Ordner darin</translation>
    </message>
</context>
</TS>
