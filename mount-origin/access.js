// Who may use the service, as the service tells it.

import {rendered, text} from './texts.js';

/** In words, of the member "access" of the service's status. */
function described({listen, sites, truncated}) {
  const machines = text(listen === 'loopback' ? 'accessThisMachine' : 'accessAnyMachine');
  if (!sites) return text('accessAnySite', {machines});
  if (sites.length === 0) return text('accessNoSite', {machines});
  return text(truncated ? 'accessManySites' : 'accessSites', {machines, sites: sites.join(text('accessComma'))});
}

/** Returns what takes the service's status, or null while it is unknown. */
export function prepareAccess() {
  const place = document.getElementById('access');
  let access = null;

  function render() {
    place.parentElement.hidden = !access;
    place.textContent = access ? described(access) : '';
  }

  rendered(render);
  return (status) => {
    access = status?.access ?? null;
    render();
  };
}
