// Puts the status and test page together.

import {prepareAccess} from './access.js';
import {showConnection} from './connection.js';
import {prepareHistory} from './history.js';
import {prepareLibraries} from './libraries.js';
import {Liveness} from './liveness.js';
import {Quorvel} from './quorvel.js';
import {prepareReading} from './reading.js';
import {prepareReply, showReply} from './reply.js';
import {prepareRequest} from './request.js';
import {prepareSettings} from './settings.js';
import {Task} from './task.js';

const url = `${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}`;
const client = new Quorvel({url});
const task = new Task();
const liveness = new Liveness(() => client.state === 'open' && !task.phase);

const remember = prepareHistory(task, (done) => {
  showReply(done);
  document.getElementById('reply').focus();
});
function finish(done) {
  showReply(done);
  remember(done);
  if (done.replyText === undefined) liveness.ask();
  else liveness.answered(true);
}

showConnection(client, task, liveness);
prepareReply(task);
prepareReading(client, task, finish);
const fillRequest = prepareRequest(client, task, finish);
prepareLibraries(client, new Quorvel({url, reconnect: false}), task, fillRequest, prepareAccess());
prepareSettings(client, remember);
client.connect().catch(() => {});  // the connection's card shows the state in any case
