// Puts the status and test page together.

import {showConnection} from './connection.js';
import {prepareHistory} from './history.js';
import {Quorvel} from './quorvel.js';
import {prepareReply, showReply} from './reply.js';
import {prepareRequest} from './request.js';
import {prepareSettings} from './settings.js';

const client = new Quorvel({url: `${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}`});
const remember = prepareHistory((done) => {
  showReply(done);
  document.getElementById('reply').focus();
});

showConnection(client);
prepareReply();
prepareRequest(client, (done) => {
  showReply(done);
  remember(done);
});
prepareSettings(client, remember);
client.connect().catch(() => {});  // the connection's card shows the state in any case
