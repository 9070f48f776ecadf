// Puts the status and test page together.

import {showConnection} from './connection.js';
import {prepareHistory} from './history.js';
import {Liveness} from './liveness.js';
import {Quorvel} from './quorvel.js';
import {prepareReading} from './reading.js';
import {prepareReply, showReply} from './reply.js';
import {prepareRequest} from './request.js';
import {prepareSettings} from './settings.js';
import {Task} from './task.js';

const client = new Quorvel({url: `${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}`});
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
prepareRequest(client, task, finish);
prepareSettings(client, remember);
client.connect().catch(() => {});  // the connection's card shows the state in any case
