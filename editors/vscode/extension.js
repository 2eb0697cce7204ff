// Starts tavls, the TAVRIN-4GL language server, for the documents of language "tavrin": over
// standard input and output, with the settings of the section "tavls" as initializationOptions
// and in every workspace/didChangeConfiguration.
'use strict';

const vscode = require('vscode');
const { LanguageClient, TransportKind } = require('vscode-languageclient/node');

const SECTION = 'tavls';
let client;

// The settings the server reads: every member of the section but the editor's own ones.
function serverSettings() {
  const section = vscode.workspace.getConfiguration(SECTION);
  const settings = {};
  for (const name of ['tavrin', 'includeDirectories', 'globalDictionary', 'userDictionary', 'noDictionaries',
    'erq', 'dateOrder', 'yearOffset', 'dateSeparator', 'monthNames', 'environment']) {
    const value = section.get(name);
    if (value !== null && value !== undefined) settings[name] = value;
  }
  return settings;
}

function makeClient() {
  const command = vscode.workspace.getConfiguration(SECTION).get('path') || 'tavls';
  const serverOptions = { command, args: [], transport: TransportKind.stdio };
  const clientOptions = {
    documentSelector: [
      { scheme: 'file', language: 'tavrin' },
      { scheme: 'untitled', language: 'tavrin' },
    ],
    initializationOptions: serverSettings(),
    synchronize: {
      configurationSection: SECTION,
      fileEvents: vscode.workspace.createFileSystemWatcher('**/tavls.json'),
    },
  };
  return new LanguageClient('tavls', 'TAVRIN-4GL language server', serverOptions, clientOptions);
}

async function start() {
  client = makeClient();
  try {
    await client.start();
  } catch (err) {
    vscode.window.showErrorMessage(
      `tavls could not be started (${err.message}): set "tavls.path" to the server, e.g. $TAVRIN/bin/tavls`);
  }
}

async function restart() {
  if (client) await client.stop().catch(() => {});
  await start();
}

function activate(context) {
  context.subscriptions.push(
    vscode.workspace.onDidChangeConfiguration((event) => {
      if (event.affectsConfiguration(`${SECTION}.path`)) restart();
    }),
    vscode.commands.registerCommand('tavls.restart', restart));
  return start();
}

function deactivate() {
  return client ? client.stop() : undefined;
}

module.exports = { activate, deactivate };
